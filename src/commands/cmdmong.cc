// "cmd-getmon"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsmon.h"

int process_getmon(kx_object* cmd, kx_object* rsp) {
  const char* client = cmd_client(cmd);
  kx::Object monitors(fx_get_monlist(kfaxdir, client));
  if (monitors == nullptr) {
    return cmd_fail(rsp, kx_err_failed, "Cannot get monitor list for %s",
                    client);
  }
  return cmd_succeed(rsp, std::move(monitors));
}
