// "cmd-faxcln"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsstat.h"

int process_clnfax(kx_object* cmd, kx_object* rsp) {
  if (fx_clean_events(kfaxdir, cmd_client(cmd)) != 0) {
    return cmd_fail(rsp, kx_err_failed, "Cannot clear fax events");
  }
  return cmd_succeed(rsp);
}
