// "cmd-pbcmd"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "phonebook/pb.h"

int process_pbcmd(kx_object* cmd, kx_object* rsp) {
  kx::Object pbcom(cmd_argument(cmd));
  Kfx_Set(cmd, "objptr", nullptr);  // it is the response's from now on
  if (do_pbcmd(kx::Text(cmd, "clientid"), pbcom.get()) != 0) {
    return cmd_fail(rsp, pb_errno, "%s", Kfx_Errmsg(pb_errno));
  }
  return cmd_succeed(rsp, std::move(pbcom));
}
