// "cmd-msgret"
#include <string>

#include "cm/cmlimits.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsmsg.h"

namespace {

// The client is told in a few fixed words that the text is too long; how long
// it may be stands here.
void LogLimits(const char* user, const char* name) {
  const std::string lines = cm_limit_text(cm_limit(cm_limit_id::kMessageLines));
  dmn_logf("Message %s of %s has more than %s lines or %s", name, user,
           lines.c_str(), cm_limit_text(cm_limit(cm_limit_id::kMessageBytes)));
}

}  // namespace

int process_msgret(kx_object* cmd, kx_object* rsp) {
  const char* name = cmd_file_name(cmd_argument(cmd), "rname", rsp);
  if (name == nullptr) return -1;
  kx::Object message(fx_msg_retrieve(kfaxdir, cmd_client(cmd), name));
  if (message == nullptr) {
    const int error = Kfx_Errno();
    if (error == kx_err_too_long) LogLimits(cmd_client(cmd), name);
    return cmd_fail(rsp, kx_err_failed, "Cannot create msg object: %s",
                    Kfx_Errmsg(error));
  }
  return cmd_succeed(rsp, std::move(message));
}
