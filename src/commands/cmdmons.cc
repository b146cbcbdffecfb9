// "cmd-setmon"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsmon.h"

int process_setmon(kx_object* cmd, kx_object* rsp) {
  kx_object* monitors = cmd_argument(cmd);
  if (fx_set_monlist(kfaxdir, monitors) != 0) {
    return cmd_fail_why(rsp, kx_err_command, "Cannot set monitor list");
  }
  return cmd_succeed(rsp);
}
