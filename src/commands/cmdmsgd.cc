// "cmd-msgdel"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/dmnmsg.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsefifo.h"
#include "util/kuterr.h"

int process_msgdel(kx_object* cmd, kx_object* rsp) {
  const char* name = cmd_file_name(cmd_argument(cmd), "rname", rsp);
  if (name == nullptr) return -1;
  const char* client = cmd_client(cmd);
  if (cmd_delete_file(cmd_open_messages(client), name) != 0) {
    return cmd_fail(rsp, kx_err_failed, "Cannot delete file %s: %s", name,
                    Kut_sys_errstr());
  }
  dmn_send_msg(kfaxdir, client, kFxEventMessages);
  return cmd_succeed(rsp);
}
