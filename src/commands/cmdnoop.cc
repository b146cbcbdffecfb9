// "cmd-noop"
#include "commands/cmdresult.h"
#include "commands/handlers.h"

int process_noop(kx_object*, kx_object* rsp) { return cmd_succeed(rsp); }
