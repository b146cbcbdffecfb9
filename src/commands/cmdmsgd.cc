// "cmd-msgdel"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/dmnmsg.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsefifo.h"
#include "util/kuterr.h"

int process_msgdel(kx_object* cmd, kx_object* rsp) {
  kx_object* resource = cmd_argument(cmd, "obj-resource");
  if (resource == nullptr) {
    return cmd_fail(rsp, kx_err_command, "Invalid msg delete command");
  }
  const char* name = kx::Text(resource, "rname");
  if (name == nullptr) {
    return cmd_fail(rsp, kx_err_data, "No filename specified");
  }
  const char* client = cmd_client(cmd);
  if (cmd_delete_file(cmd_open_messages(client), name) != 0) {
    return cmd_fail(rsp, kx_err_failed, "Cannot delete file %s: %s", name,
                    Kut_sys_errstr());
  }
  dmn_send_msg(kfaxdir, client, kFxEventMessages);
  return cmd_succeed(rsp);
}
