#include "commands/cmdstat.h"

#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsstat.h"

int cmd_answer_status(kx_object* cmd, kx_object* rsp, cmd_status_reader read) {
  kx_object* reqid = cmd_argument(cmd);
  const long seqno = kx::Number(reqid, "seqno");
  kx::Object found(read(kfaxdir, cmd_client(cmd), seqno));
  if (found == nullptr) {
    return cmd_fail(rsp, kx_err_failed, "Cannot get status for %ld: %s", seqno,
                    Kfx_Errmsg(Kfx_Errno()));
  }
  return cmd_succeed(rsp, std::move(found));
}

int process_status(kx_object* cmd, kx_object* rsp) {
  return cmd_answer_status(cmd, rsp, fx_read_status);
}
