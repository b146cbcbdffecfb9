// "cmd-setmon"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsmon.h"

int process_setmon(kx_object* cmd, kx_object* rsp) {
  kx_object* monitors = cmd_argument(cmd, "obj-monitor");
  if (monitors == nullptr) {
    return cmd_fail(rsp, kx_err_command, "Invalid set monitors cmd");
  }
  if (fx_set_monlist(kfaxdir, monitors) != 0) {
    return cmd_fail(rsp, kx_err_command, "Cannot set monitor list: %s",
                    Kfx_Errmsg(Kfx_Errno()));
  }
  return cmd_succeed(rsp);
}
