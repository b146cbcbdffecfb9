// "cmd-cancel"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/dmnmsg.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsefifo.h"
#include "faxserver/fsreq.h"

int process_cancel(kx_object* cmd, kx_object* rsp) {
  kx_object* reqid = cmd_argument(cmd);
  const char* client = cmd_client(cmd);
  if (fx_cancel(kfaxdir, client, reqid) != 0) {
    return cmd_fail_why(rsp, Kfx_Errno(), "Cannot cancel request");
  }
  dmn_send_msg(kfaxdir, client, kFxEventCancelled);
  return cmd_succeed(rsp);
}
