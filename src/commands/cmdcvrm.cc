// "cmd-cvrmatch"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fscover.h"

int process_cvrmatch(kx_object* cmd, kx_object* rsp) {
  kx_object* tags = cmd_argument(cmd);
  kx::Object covers(fx_cover_matchlist(kfaxdir, tags));
  const int error = Kfx_Errno();
  if (error == 0) return cmd_succeed(rsp, std::move(covers));
  cmd_fail(rsp, kx_err_server, "%s", Kfx_Errmsg(error));
  kx::SetChild(rsp, "objptr", std::move(covers));
  return 0;
}
