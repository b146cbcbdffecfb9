// "cmd-extcmd"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsextcmd.h"

int process_extcmd(kx_object* cmd, kx_object* rsp) {
  kx_object* extcmd = cmd_argument(cmd);
  kx::Object output(fx_extcmd(kfaxdir, cmd_client(cmd), extcmd));
  const int error = Kfx_Errno();
  if (error == 0) return cmd_succeed(rsp, std::move(output));
  // The client also gets what the command said about its failure.
  cmd_fail_why(rsp, error, "Extern cms failed");
  kx::SetChild(rsp, "objptr", std::move(output));
  return error;
}
