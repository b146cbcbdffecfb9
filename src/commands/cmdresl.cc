// "cmd-reslist"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsres.h"

int process_reslist(kx_object* cmd, kx_object* rsp) {
  kx_object* request = cmd_argument(cmd);
  const char* name = kx::TextOrEmpty(request, "listtype");
  const int type = Kfx_Str_To_Enum(name);
  kx::Object list;
  if (type != -1) list.reset(fx_get_res_list(kfaxdir, type));
  if (type == -1 || Kfx_Errno() != 0) {
    return cmd_fail(rsp, kx_err_data, "Invalid list type %s", name);
  }
  kx::Object answer = cmd_make_list(name, std::move(list));
  if (answer == nullptr) {
    return cmd_fail_why(rsp, Kfx_Errno(), "Cannot create list req object");
  }
  return cmd_succeed(rsp, std::move(answer));
}
