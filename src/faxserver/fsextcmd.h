// Running a command on the server on a user's behalf.
//
// - The command runs as the user, groups, gid and uid, within its budget and in
//   an environment of its own (fsprog.h), with /dev/null as its input, and dies
//   with this process, as does what it started (fsguard.h). It has no
//   descriptors but three.
#ifndef FAXSERVER_FSEXTCMD_H_
#define FAXSERVER_FSEXTCMD_H_

#include <cstddef>
#include <string>

#include "faxserver/fsprog.h"
#include "kx/kfx.h"

constexpr size_t kFxMaxArgs = 256;  // of an external command

// Runs the command of an "obj-extcmd" and returns what it printed, which the
// caller frees: an object of any type when `retobj` is true, else an "obj-msg".
// kx_errno is kx_err_none; with an exit status other than 0 it is kx_err_failed
// and the result is an "obj-msg" of what the command wrote to its standard
// error. It is that as well when a limit is exceeded, and the "obj-msg" says
// which. Null: kx_err_permission for a user that the system does not know or
// that this process may not become; kx_err_data for more than kFxMaxArgs
// arguments, an empty command line, and output that is no object where one was
// asked for; kx_err_memory; kx_err_system.
kx_object* fx_extcmd(const char* root, const char* user, kx_object* extcmd);

// Runs a command line through the shell as the user, or as the fax system's
// user where the system does not know that one; `errors` is the file that it
// writes its errors to. The exit status, 128 and above for an end by a signal;
// why_ended() of the program goes to `why_ended`, which may be null. -1 with
// kx_err_system (and errno) when it cannot be run, with kx_err_permission when
// this process may not become that user, with kx_err_memory.
int fx_run_as(const char* user, const char* command,
              fx_watched_file errors = {}, std::string* why_ended = nullptr);

#endif  // FAXSERVER_FSEXTCMD_H_
