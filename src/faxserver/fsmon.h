// A user's monitors: whose calls the user's clients show.
//
// The text file "monitors" in the user's options directory holds one entry a
// line, read up to 128 bytes, empty lines and lines beginning with "#" left
// out:
//
//     ALLOWALL   all calls are shown but those of the excluded users
//     !name      an excluded user, where ALLOWALL stands
//     name       a user whose calls are shown, where it does not
//
// Blanks around a name are not part of it, and a name with a carriage return in
// it is none. Only the whole line ALLOWALL is the switch: "!ALLOWALL" excludes
// a user of that name.
#ifndef FAXSERVER_FSMON_H_
#define FAXSERVER_FSMON_H_

#include "kx/kfx.h"

// The user's "obj-monitor", which the caller frees. Without a file it shows
// nobody's calls. Null with kx_err_user for an invalid user, kx_err_system when
// the file is there but cannot be read for want of descriptors or a sound disk,
// kx_err_too_long when it has more than message-lines, kx_err_memory.
kx_object* fx_get_monlist(const char* root, const char* user);

// Replaces the monitors of the user that the "obj-monitor" names; the options
// directory is made when missing. 0 and kx_errno 0, or -1: kx_err_data for an
// invalid user, a `montype` that is none, and a name that is no line of its
// own, kx_err_system; the old file stays.
int fx_set_monlist(const char* root, kx_object* monitor);

#endif  // FAXSERVER_FSMON_H_
