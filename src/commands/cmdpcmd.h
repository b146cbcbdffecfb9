// "cmd-pbcmd": the phone book.
#ifndef COMMANDS_CMDPCMD_H_
#define COMMANDS_CMDPCMD_H_

#include "kx/object.h"

// Carries out the "obj-pbcom" in the command's "objptr" on the books of its
// client; the same object, with the results, goes into the response. Without
// one: 19. A failure has the phone book's error number and its text. 0 or -1.
int process_pbcmd(kx_object* cmd, kx_object* rsp);

#endif  // COMMANDS_CMDPCMD_H_
