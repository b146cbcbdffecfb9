// "cmd-try"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsreq.h"

int process_try(kx_object* cmd, kx_object* rsp) {
  kx_object* reqid = cmd_argument(cmd);
  const int result = fx_try(kfaxdir, reqid);
  if (result == 0) return cmd_succeed(rsp);
  cmd_fail_why(rsp, Kfx_Errno(), "Cannot try request");
  return result;
}
