// "cmd-imgstore"
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "commands/cmdaccess.h"
#include "commands/cmdargs.h"
#include "commands/cmdhand.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/dmnmsg.h"
#include "daemon/settings.h"
#include "faxserver/fsefifo.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutuser.h"

namespace {

// An uploaded file: the directory that it is in, and who reads it there.
struct Upload {
  UniqueFd dir;
  kut_fsid reader;
  UniqueFd file;
  struct stat st;
};

bool IsSpool(const char* path, int fd) {
  struct stat st;
  struct stat other;
  return path != nullptr && fstat(fd, &st) == 0 && stat(path, &other) == 0 &&
         st.st_dev == other.st_dev && st.st_ino == other.st_ino;
}

bool OwnedBy(const struct stat& st, const char* user) {
  const int uid = Kut_uname_to_uid(user);
  return uid >= 0 && st.st_uid == static_cast<uid_t>(uid);
}

// Opens the directory and, looked at before it is opened for reading, the file
// of that name in it: a regular file with no other name.
bool OpenAs(const kut_fsid& reader, const char* dir, const char* name,
            Upload* upload) {
  const FileIdentity identity(reader);
  if (!identity.held()) return false;
  upload->reader = reader;
  upload->dir.reset(Kut_open(dir, O_PATH | O_DIRECTORY));
  if (!upload->dir.valid()) return false;
  const UniqueFd place(
      Kut_open_at(upload->dir.get(), name, O_PATH | O_NOFOLLOW));
  if (!place.valid() || fstat(place.get(), &upload->st) != 0 ||
      !S_ISREG(upload->st.st_mode) || upload->st.st_nlink != 1) {
    return false;
  }
  upload->file.reset(Kut_reopen(place.get(), O_RDONLY));
  return upload->file.valid();
}

// Opens a file that the command's owner can reach and the client may give away:
// the client's own; or, from an owner who is trusted, what a session uploaded
// into a spool directory.
bool OpenUpload(kx_object* cmd, const char* dir, const char* name,
                Upload* upload) {
  kut_fsid owner;
  if (!cmd_owner(cmd, &owner)) return false;
  if (OpenAs(owner, dir, name, upload) &&
      OwnedBy(upload->st, cmd_client(cmd))) {
    return true;
  }
  return cmd_is_trusted(cmd) && OpenAs({}, dir, name, upload) &&
         (IsSpool(file_dir, upload->dir.get()) ||
          IsSpool(netspool, upload->dir.get()));
}

// Moves the uploaded file into the client's queue. 0, or -1 with errno, the
// same for all that the client may not see: no path is found out by asking.
int Store(kx_object* cmd, const char* path, const char* filename) {
  const char* base = Kut_basename(path);
  char dir[KX_PAIR_SIZE];
  std::snprintf(dir, sizeof dir, "%.*s", static_cast<int>(base - path), path);
  Upload upload;
  if (!OpenUpload(cmd, dir, base, &upload)) {
    if (!Kut_is_shortage(errno)) errno = ENOENT;
    return -1;
  }
  if (!cmd_is_fax_name(filename)) {
    errno = ENOENT;
    return -1;
  }
  return cmd_move_fax(
      {upload.dir.get(), base, upload.reader, upload.file.get(), upload.st},
      cmd_open_queue(cmd_client(cmd)), filename, upload.st.st_mode & 0666);
}

}  // namespace

int process_imgstore(kx_object* cmd, kx_object* rsp) {
  kx_object* request = cmd_argument(cmd, "obj-reqsto");
  if (request == nullptr) {
    return cmd_fail(rsp, kx_err_command, "Invalid image store command");
  }
  const char* path =
      kx::TextOrEmpty(kx::Child(request, "filobjptr"), "pathname");
  const char* filename =
      kx::TextOrEmpty(kx::Child(request, "finfoptr"), "filename");
  if (Store(cmd, path, filename) != 0) {
    return cmd_fail(rsp, kx_err_failed, "Cannot move file %s: %s", path,
                    Kut_sys_errstr());
  }
  dmn_send_msg(kfaxdir, cmd_client(cmd), kFxEventFaxes);
  return cmd_succeed(rsp);
}
