// Running a command on the server on a user's behalf.
//
// - The command runs as the user, groups, gid and uid, with /dev/null as its
//   input, and dies with this process, as does what it started (fsguard.h). It
//   has no descriptors but three.
#ifndef FAXSERVER_FSEXTCMD_H_
#define FAXSERVER_FSEXTCMD_H_

#include <cstddef>

#include "kx/kfx.h"

constexpr size_t kFxMaxArgs = 256;         // of an external command
constexpr size_t kFxMaxOutput = 64 << 20;  // bytes that a command may print

// Runs the command of an "obj-extcmd" and returns what it printed, which the
// caller frees: an object of any type when `retobj` is true, else an "obj-msg".
// kx_errno is 0; with an exit status other than 0 it is 13 and the result is an
// "obj-msg" of what the command wrote to its standard error. Null: 12 for a
// user that the system does not know or that this process may not become; 19
// for more than kFxMaxArgs arguments, an empty command line, output that is
// too long, and output that is no object where one was asked for; 3.
kx_object* fx_extcmd(const char* root, const char* user, kx_object* extcmd);

// Runs a command line through the shell as the user, or as the fax system's
// user where the system does not know that one. The exit status, 128 and above
// for an end by a signal; -1 with 3 (and errno) when it cannot be run, with 12
// when this process may not become that user.
int fx_run_as(const char* user, const char* command);

#endif  // FAXSERVER_FSEXTCMD_H_
