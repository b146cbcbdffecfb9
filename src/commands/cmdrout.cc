// "cmd-copyfax" and "cmd-fwdfax"
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "cm/cmpaths.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/dmnmsg.h"
#include "daemon/settings.h"
#include "faxserver/fsefifo.h"
#include "faxserver/fsuser.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutstr.h"

namespace {

constexpr mode_t kImageMode = 0666;
constexpr std::size_t kNameSize = 256;  // a field's name with another extension

// A fax on its way into another user's queue. It arrives under a temporary
// name, which no list shows, and is complete before it takes its own.
struct Transfer {
  const char* filename;
  UniqueFd from;
  UniqueFd to;
  UniqueFd fax;
  struct stat fax_stat;
  struct stat to_stat;
  char temp[kNameSize];
};

// Makes the fax look as if it had come in for the other user. What fails here
// the user can do without.
void Dress(const Transfer& transfer, int fd) {
  const timespec times[2] = {transfer.fax_stat.st_atim,
                             transfer.fax_stat.st_mtim};
  static_cast<void>(
      fchown(fd, transfer.to_stat.st_uid, transfer.to_stat.st_gid) == 0);
  fchmod(fd, kImageMode);
  futimens(fd, times);
}

bool Copy(const Transfer& transfer) {
  FileReplacer copy;
  if (copy.Open(transfer.temp, kImageMode, transfer.to.get()) != 0 ||
      Kut_copy_bytes(transfer.fax.get(), copy.fd()) != 0) {
    return false;
  }
  Dress(transfer, copy.fd());
  return copy.Commit() == 0;
}

bool Move(const Transfer& transfer) {
  if (renameat(transfer.from.get(), transfer.filename, transfer.to.get(),
               transfer.temp) != 0) {
    return false;
  }
  Dress(transfer, transfer.fax.get());
  return true;
}

// Opens what takes part; 0, or the failed response's -1.
int Open(Transfer& transfer, const char* from, const char* to, kx_object* rsp) {
  transfer.to = cmd_open_queue(to);
  if (!transfer.to.valid() ||
      fstat(transfer.to.get(), &transfer.to_stat) != 0) {
    return cmd_fail(rsp, kx_err_data, "to-id %s does not exist", to);
  }
  transfer.from = cmd_open_queue(from);
  transfer.fax =
      cmd_open_file(transfer.from.get(), transfer.filename, &transfer.fax_stat);
  if (!transfer.fax.valid()) {
    return cmd_fail(rsp, kx_err_failed, "faxfile %s/%s does not exist",
                    cm_get_user_dir(kfaxdir, from), transfer.filename);
  }
  Kut_strcpyz(transfer.temp, transfer.filename, sizeof transfer.temp);
  Kut_set_file_ext(transfer.temp, "tmp");
  return 0;
}

}  // namespace

int process_route(kx_object* cmd, kx_object* rsp) {
  kx_object* route = cmd_argument(cmd, "obj-route");
  if (route == nullptr) {
    return cmd_fail(rsp, kx_err_command, "Invalid route request");
  }
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
  if (!(forward ? Move(transfer) : Copy(transfer))) {
    return cmd_fail(rsp, kx_err_failed, "%s of %s failed: %s",
                    forward ? "Rename" : "Copy", transfer.filename,
                    Kut_sys_errstr());
  }
  // Not checked: the fax is with the other user, if under its temporary name.
  renameat(transfer.to.get(), transfer.temp, transfer.to.get(),
           transfer.filename);
  if (forward) dmn_send_msg(kfaxdir, from, kFxEventFaxes);
  dmn_send_msg(kfaxdir, to, kFxEventFaxes);
  return cmd_succeed(rsp);
}
