#include "commands/handlers.h"

#include "commands/cmdresult.h"
#include "phonebook/pb.h"

int process_pbcmd(kx_object* cmd, kx_object* rsp) {
  if (!Kfx_Is_Obj_Type(kx::Child(cmd, "objptr"), "obj-pbcom")) {
    return cmd_fail(rsp, kx_err_data, "Invalid phone-book cmd");
  }
  kx::Object pbcom(kx::Child(cmd, "objptr"));
  Kfx_Set(cmd, "objptr", nullptr);
  if (do_pbcmd(kx::Text(cmd, "clientid"), pbcom.get()) != 0) {
    return cmd_fail(rsp, pb_errno, "%s", Kfx_Errmsg(pb_errno));
  }
  return cmd_succeed(rsp, std::move(pbcom));
}
