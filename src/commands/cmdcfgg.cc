// "cmd-getcfg"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsconfig.h"

int process_getcfg(kx_object* cmd, kx_object* rsp) {
  const char* client = cmd_client(cmd);
  kx::Object config(fx_get_config(kfaxdir, client));
  if (config == nullptr) {
    return cmd_fail(rsp, kx_err_failed, "Cannot get config object for %s",
                    client);
  }
  return cmd_succeed(rsp, std::move(config));
}
