// "cmd-cvrtags"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fscover.h"

int process_cvrtags(kx_object* cmd, kx_object* rsp) {
  const char* name = kx::TextOrEmpty(cmd_argument(cmd), "rname");
  kx::Object tags(fx_get_cover_tags(kfaxdir, name));
  if (tags == nullptr) {
    return cmd_fail(rsp, kx_err_data, "Invalid coverpage %s", name);
  }
  kx::Object answer = cmd_make_list("lst-cvrtags", std::move(tags));
  if (answer == nullptr) {
    return cmd_fail(rsp, Kfx_Errno(), "Cannot create list req object");
  }
  kx::SetText(answer.get(), "listid", name);
  return cmd_succeed(rsp, std::move(answer));
}
