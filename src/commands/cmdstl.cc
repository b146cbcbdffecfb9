// "cmd-statatt"
#include "commands/cmdstat.h"
#include "commands/handlers.h"
#include "faxserver/fsstat.h"

int process_statlist(kx_object* cmd, kx_object* rsp) {
  return cmd_answer_status(cmd, rsp, fx_status_list);
}
