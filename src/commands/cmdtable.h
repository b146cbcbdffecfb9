// The table of all commands. Its rows stand in commands.def.
#ifndef COMMANDS_CMDTABLE_H_
#define COMMANDS_CMDTABLE_H_

#include "kx/kfx.h"

// Carries out a command and puts the outcome into the response: "result" 0 and
// the data in "objptr", or an error number and in "errmsg" a text, which is
// logged as well. 0 or -1. Both objects stay with the caller.
using cmd_handler = int (*)(kx_object* cmd, kx_object* rsp);

enum cmd_flags : unsigned {
  kCmdClientDecides = 1,  // answered only if the command's "respond" says so
  kCmdRunsProgram = 2,    // starts a program that runs as the command's client
  // A file that the answer names travels with it. Never for an object that
  // somebody else wrote (the output of a user's program, a file in a user's
  // directory, the command's own argument): a name in there would make the
  // daemon, which may read everything, read that file for a client.
  kCmdEmbeds = 4,
};

// The type of an argument that may be of any.
inline constexpr char kCmdAnyObject[] = "";

// What a command's "objptr" has to be.
struct cmd_takes {
  const char* type = nullptr;  // null: it is not looked at
  int error = kx_err_none;     // the answer to none, or to one of another type
  const char* message = nullptr;
};

struct cmd_row {
  int type;  // kx_cmd_noop and so on; 0 in the row that ends a table
  cmd_handler handler;
  unsigned flags;  // of cmd_flags
  cmd_takes takes;
};

extern const cmd_row cmd_table[];

// The first row of the type, or null.
const cmd_row* find_ptbl(int type, const cmd_row* table);

#endif  // COMMANDS_CMDTABLE_H_
