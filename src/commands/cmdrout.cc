// "cmd-copyfax" and "cmd-fwdfax"
#include <cstring>

#include "cm/cmpaths.h"
#include "commands/cmdaccess.h"
#include "commands/cmdargs.h"
#include "commands/cmdhand.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/dmnmsg.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsefifo.h"
#include "faxserver/fsuser.h"
#include "util/kuterr.h"

namespace {

constexpr mode_t kImageMode = 0666;

// A fax on its way into another user's queue.
struct Transfer {
  const char* filename;
  cm_folder from;
  cm_folder to;
  UniqueFd fax;
  struct stat fax_stat;
};

// Opens what takes part; 0, or the failed response's -1.
int Open(Transfer& transfer, const char* from, const char* to, kx_object* rsp) {
  transfer.to = cmd_open_queue(to);
  if (!transfer.to.valid()) {
    return cmd_fail(rsp, kx_err_data, "to-id %s does not exist", to);
  }
  transfer.from = cmd_open_queue(from);
  transfer.fax =
      cmd_open_fax(transfer.from, transfer.filename, &transfer.fax_stat);
  if (!transfer.fax.valid()) {
    return cmd_fail(rsp, kx_err_failed, "faxfile %s/%s does not exist",
                    cm_get_user_dir(kfaxdir, from), transfer.filename);
  }
  return 0;
}

// Copies or moves; 0 or -1 with errno.
int Run(const Transfer& transfer, bool forward, FileReplacer::Over over) {
  const cmd_original original = {transfer.from.fd(), transfer.filename,
                                 transfer.from.owner(), transfer.fax.get(),
                                 transfer.fax_stat};
  const auto hand = forward ? cmd_move_fax : cmd_copy_fax;
  return hand(original, transfer.to, transfer.filename, kImageMode, over);
}

}  // namespace

int process_route(kx_object* cmd, kx_object* rsp) {
  kx_object* route = cmd_argument(cmd);
  const char* from = kx::TextOrEmpty(route, "fromid");
  const char* to = kx::TextOrEmpty(route, "toid");
  if (!fx_is_valid_user(kfaxdir, from)) {
    return cmd_fail(rsp, kx_err_data, "Invalid from route %s", from);
  }
  if (!fx_is_valid_user(kfaxdir, to)) {
    return cmd_fail(rsp, kx_err_data, "Invalid to route %s", to);
  }
  Transfer transfer = {};
  transfer.filename = kx::TextOrEmpty(route, "filename");
  if (Open(transfer, from, to, rsp) != 0) return -1;

  const int type = kx::Enum(cmd, "cmdtype");
  if (type != kx_cmd_copyfax && type != kx_cmd_fwdfax) {
    return cmd_fail(rsp, kx_err_command, "Invalid route command");
  }
  const bool forward = type == kx_cmd_fwdfax;
  // Who speaks for himself alone does not put his fax in the place of
  // another's.
  const bool replaces = strcmp(from, to) == 0 || cmd_is_trusted(cmd);
  const auto over =
      replaces ? FileReplacer::Over::kReplace : FileReplacer::Over::kKeep;
  if (Run(transfer, forward, over) != 0) {
    return cmd_fail(rsp, kx_err_failed, "%s of %s failed: %s",
                    forward ? "Rename" : "Copy", transfer.filename,
                    Kut_sys_errstr());
  }
  if (forward) dmn_send_msg(kfaxdir, from, kFxEventFaxes);
  dmn_send_msg(kfaxdir, to, kFxEventFaxes);
  return cmd_succeed(rsp);
}
