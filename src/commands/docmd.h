// The dispatcher: from a command object to its handler and the delivery of the
// response.
//
// - In single-daemon mode this runs in a worker of its own, which stays until
//   its response is out; in multi-daemon mode in the daemon, whose main loop
//   retries.
#ifndef COMMANDS_DOCMD_H_
#define COMMANDS_DOCMD_H_

#include "commands/cmdtable.h"

// Carries out a command, which it takes over, and delivers the response. The
// handler's result (-1 for a type without one) when nothing is to be answered,
// else that of rsp_write; -1, and `cmd` not freed, when no response can be
// made.
int do_cmd(kx_object* cmd);

// Runs the row's handler, if the command's argument is what the row takes: the
// handler's result, or -1 with the row's failure in the response.
int cmd_run(const cmd_row& row, kx_object* cmd, kx_object* rsp);

// Sets a response aside, if there is none, for a command that comes when there
// is no memory for one. Before the first command; do_cmd sees to it afterwards.
void cmd_reserve();

// Logs that a command's response could not be written, with the object
// library's present message.
void cmd_failed(kx_object* cmd);

#endif  // COMMANDS_DOCMD_H_
