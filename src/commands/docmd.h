// The dispatcher: from a command object to its handler and the delivery of the
// response.
//
// - One row of the command table a command; the handler's file holds the rest.
// - In single-daemon mode this runs in a worker of its own, which stays until
//   its response is out; in multi-daemon mode in the daemon, whose main loop
//   retries.
#ifndef COMMANDS_DOCMD_H_
#define COMMANDS_DOCMD_H_

#include "kx/object.h"

// Carries out a command and puts the outcome into the response: "result", on
// failure "errmsg", on success the data in "objptr". 0 or -1. Both objects stay
// with the caller.
using cmd_handler = int (*)(kx_object* cmd, kx_object* rsp);

struct cmd_row {
  int type;  // kx_cmd_noop and so on; 0 in the row that ends a table
  cmd_handler handler;
  int client_decides;  // 1: answered only if the command's "respond" says so
  int runs_program;    // 1: starts a program that runs as the command's client
};

// The first row of the type, or null.
const cmd_row* find_ptbl(int type, const cmd_row* table);

// Carries out a command, which it takes over, and delivers the response. The
// handler's result (-1 for a type without one) when nothing is to be answered,
// else that of rsp_write; -1, and `cmd` not freed, when no response can be
// made.
int do_cmd(kx_object* cmd);

// Sets a response aside, if there is none, for a command that comes when there
// is no memory for one. Before the first command; do_cmd sees to it afterwards.
void cmd_reserve();

// Logs that a command's response could not be written, with the object
// library's present message.
void cmd_failed(kx_object* cmd);

// "cmd-noop": does nothing and succeeds, which tells a client that the daemon
// runs.
int process_noop(kx_object* cmd, kx_object* rsp);

#endif  // COMMANDS_DOCMD_H_
