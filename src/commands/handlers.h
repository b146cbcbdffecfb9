// The handlers of all commands, as commands.def lists and documents them.
//
// - One contract, that of cmd_handler (cmdtable.h). A handler that names an
//   argument there runs with one of that type alone.
// - Every name that a client sends becomes part of a path as one plain
//   component only; any other fails like one that does not exist.
#ifndef COMMANDS_HANDLERS_H_
#define COMMANDS_HANDLERS_H_

#include "kx/kfx.h"

#define KRT_COMMAND(type, handler, ...) \
  int process_##handler(kx_object* cmd, kx_object* rsp);
#include "commands/commands.def"
#undef KRT_COMMAND

#endif  // COMMANDS_HANDLERS_H_
