// "cmd-try"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsreq.h"

int process_try(kx_object* cmd, kx_object* rsp) {
  kx_object* reqid = cmd_argument(cmd, "obj-reqid");
  if (reqid == nullptr) {
    return cmd_fail(rsp, kx_err_command, "Invalid try command");
  }
  const int result = fx_try(kfaxdir, reqid);
  if (result == 0) return cmd_succeed(rsp);
  const int error = Kfx_Errno();
  cmd_fail(rsp, error, "Cannot try request: %s", Kfx_Errmsg(error));
  return result;
}
