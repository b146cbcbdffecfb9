// "cmd-imgdel"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/dmnmsg.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsefifo.h"
#include "util/kuterr.h"

int process_imgdel(kx_object* cmd, kx_object* rsp) {
  kx_object* info = cmd_argument(cmd);
  const char* user = kx::TextOrEmpty(info, "clientid");
  const char* name = kx::TextOrEmpty(info, "filename");
  if (cmd_delete_fax(cmd_open_queue(user), name) != 0) {
    return cmd_fail(rsp, kx_err_io, "Cannot delete file %s: %s", name,
                    Kut_sys_errstr());
  }
  dmn_send_msg(kfaxdir, user, kFxEventFaxes);
  return cmd_succeed(rsp);
}
