// What the two status commands have in common.
#ifndef COMMANDS_CMDSTAT_H_
#define COMMANDS_CMDSTAT_H_

#include "kx/kfx.h"

// A reader of faxserver/fsstat.h.
using cmd_status_reader = kx_object* (*)(const char* root, const char* clientid,
                                         long seqno);

// Answers with what `read` finds of the request that the command's "obj-reqid"
// names. 0 or -1, as of a handler.
int cmd_answer_status(kx_object* cmd, kx_object* rsp, cmd_status_reader read);

#endif  // COMMANDS_CMDSTAT_H_
