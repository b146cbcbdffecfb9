// "cmd-imgstore"
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "commands/cmdaccess.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/dmnmsg.h"
#include "daemon/settings.h"
#include "faxserver/fsefifo.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutuser.h"

namespace {

bool IsDirectory(int fd, const char* path) {
  struct stat st;
  struct stat other;
  return path != nullptr && fstat(fd, &st) == 0 && stat(path, &other) == 0 &&
         st.st_dev == other.st_dev && st.st_ino == other.st_ino;
}

bool OwnedBy(const struct stat& st, const char* user) {
  const int uid = Kut_uname_to_uid(user);
  return uid >= 0 && st.st_uid == static_cast<uid_t>(uid);
}

// Whether the client may give the file away: it is the client's own, or one
// that a trusted client's session uploaded into a spool directory. Errno when
// not.
bool MayTake(int dirfd, const char* name, const char* client, bool trusted) {
  struct stat st;
  if (!cmd_open_file(dirfd, name, &st).valid()) return false;
  if (OwnedBy(st, client) || (trusted && (IsDirectory(dirfd, file_dir) ||
                                          IsDirectory(dirfd, netspool)))) {
    return true;
  }
  errno = EACCES;
  return false;
}

// Moves the uploaded file into the client's queue. An old image of that name is
// replaced by the same step. 0, or -1 with errno.
int Store(const char* client, const char* path, const char* filename,
          bool trusted) {
  const char* base = Kut_basename(path);
  char dir[KX_PAIR_SIZE];
  std::snprintf(dir, sizeof dir, "%.*s", static_cast<int>(base - path), path);
  // Held open, the directory cannot become another one behind the check.
  const UniqueFd from(Kut_open(dir, O_PATH | O_DIRECTORY));
  if (!MayTake(from.get(), base, client, trusted)) return -1;
  return cmd_move_file(from.get(), base, cmd_open_queue(client).get(),
                       filename);
}

}  // namespace

int process_imgstore(kx_object* cmd, kx_object* rsp) {
  kx_object* request = cmd_argument(cmd, "obj-reqsto");
  if (request == nullptr) {
    return cmd_fail(rsp, kx_err_command, "Invalid image store command");
  }
  const char* client = cmd_client(cmd);
  const char* path =
      kx::TextOrEmpty(kx::Child(request, "filobjptr"), "pathname");
  const char* filename =
      kx::TextOrEmpty(kx::Child(request, "finfoptr"), "filename");
  if (Store(client, path, filename, cmd_is_trusted(cmd)) != 0) {
    return cmd_fail(rsp, kx_err_failed, "Cannot move file %s: %s", path,
                    Kut_sys_errstr());
  }
  dmn_send_msg(kfaxdir, client, kFxEventFaxes);
  return cmd_succeed(rsp);
}
