// "cmd-setcfg"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsconfig.h"

int process_setcfg(kx_object* cmd, kx_object* rsp) {
  kx_object* config = cmd_argument(cmd);
  if (fx_set_config(kfaxdir, cmd_client(cmd), config) != 0) {
    return cmd_fail(rsp, kx_err_command, "Cannot set config");
  }
  return cmd_succeed(rsp);
}
