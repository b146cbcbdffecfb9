// "cmd-state"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsstate.h"

int process_state(kx_object*, kx_object* rsp) {
  kx::Object state(fx_get_state(kfaxdir));
  if (state == nullptr) {
    return cmd_fail_why(rsp, kx_err_failed, "Cannot get system state");
  }
  return cmd_succeed(rsp, std::move(state));
}
