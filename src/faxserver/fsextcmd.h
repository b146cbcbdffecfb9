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
// kx_errno is 0; with an exit status other than 0 it is 13 and the result is an
// "obj-msg" of what the command wrote to its standard error. It is 13 as well
// when a limit is exceeded, and the "obj-msg" says which. Null: 12 for a user
// that the system does not know or that this process may not become; 19 for
// more than kFxMaxArgs arguments, an empty command line, and output that is no
// object where one was asked for; 1; 3.
kx_object* fx_extcmd(const char* root, const char* user, kx_object* extcmd);

// Runs a command line through the shell as the user, or as the fax system's
// user where the system does not know that one; `errors` is the file that it
// writes its errors to. The exit status, 128 and above for an end by a signal;
// why_ended() of the program goes to `why_ended`, which may be null. -1 with 3
// (and errno) when it cannot be run, with 12 when this process may not become
// that user, with 1.
int fx_run_as(const char* user, const char* command,
              fx_watched_file errors = {}, std::string* why_ended = nullptr);

#endif  // FAXSERVER_FSEXTCMD_H_
