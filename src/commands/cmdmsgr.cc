// "cmd-msgret"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/settings.h"
#include "faxserver/fsmsg.h"

int process_msgret(kx_object* cmd, kx_object* rsp) {
  kx_object* resource = cmd_argument(cmd, "obj-resource");
  if (resource == nullptr) {
    // "delete" is what clients know this by.
    return cmd_fail(rsp, kx_err_command, "Invalid msg delete command");
  }
  const char* name = kx::Text(resource, "rname");
  if (name == nullptr) {
    return cmd_fail(rsp, kx_err_data, "No filename specified");
  }
  kx::Object message(fx_msg_retrieve(kfaxdir, cmd_client(cmd), name));
  if (message == nullptr) {
    return cmd_fail(rsp, kx_err_failed, "Cannot create msg object: %s",
                    Kfx_Errmsg(Kfx_Errno()));
  }
  return cmd_succeed(rsp, std::move(message));
}
