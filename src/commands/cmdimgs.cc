// "cmd-imgstore"
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "cm/cmfolder.h"
#include "commands/cmdaccess.h"
#include "commands/cmdargs.h"
#include "commands/cmdhand.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/dmnmsg.h"
#include "daemon/spool/settings.h"
#include "faxserver/fsefifo.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutuser.h"

namespace {

// An uploaded file: the directory that it is in, and who can reach and remove
// it there.
struct Upload {
  UniqueFd dir;
  kut_fsid reader;
  UniqueFd file;
  struct stat st;
};

// Whether the path is that of the open directory.
bool IsDirectory(const char* path, int fd) {
  struct stat st;
  struct stat other;
  return path != nullptr && fstat(fd, &st) == 0 && stat(path, &other) == 0 &&
         st.st_dev == other.st_dev && st.st_ino == other.st_ino;
}

bool OwnedBy(const struct stat& st, const char* user) {
  const int uid = Kut_uname_to_uid(user);
  return uid >= 0 && st.st_uid == static_cast<uid_t>(uid);
}

// Opens the file of that name, looked at before it is opened for reading: a
// regular file with no other name.
bool OpenFile(const kut_fsid& reader, const char* name, Upload* upload) {
  UniqueFd place;
  {
    const FileIdentity identity(upload->reader);
    if (!identity.held()) return false;
    place.reset(Kut_open_at(upload->dir.get(), name, O_PATH | O_NOFOLLOW));
  }
  if (!place.valid() || fstat(place.get(), &upload->st) != 0 ||
      !S_ISREG(upload->st.st_mode) || upload->st.st_nlink != 1) {
    return false;
  }
  const FileIdentity identity(reader);
  if (!identity.held()) return false;
  upload->file.reset(Kut_reopen(place.get(), O_RDONLY));
  return upload->file.valid();
}

// Opens what the command's owner can reach and the client may give away, since
// it is his.
bool OpenOwn(kx_object* cmd, const char* dir, const char* name,
             Upload* upload) {
  if (!cmd_owner(cmd, &upload->reader)) return false;
  {
    const FileIdentity identity(upload->reader);
    if (!identity.held()) return false;
    upload->dir.reset(Kut_open(dir, O_PATH | O_DIRECTORY));
  }
  return upload->dir.valid() && OpenFile(upload->reader, name, upload) &&
         OwnedBy(upload->st, cmd_client(cmd));
}

// Opens a spool directory, as whoever owns it or, in the fax server's tree,
// what it is in.
bool OpenSpool(const char* spool, Upload* upload) {
  if (spool == nullptr) return false;
  if (!cm_is_in_tree(kfaxdir, spool)) {
    upload->dir.reset(Kut_open(spool, O_PATH | O_DIRECTORY));
    return upload->dir.valid() &&
           Kut_owner_of(upload->dir.get(), &upload->reader);
  }
  const cm_folder folder = cm_open_folder(kfaxdir, spool);
  upload->reader = folder.owner();
  upload->dir.reset(fcntl(folder.fd(), F_DUPFD_CLOEXEC, 0));
  return upload->dir.valid();
}

// Opens what the session of a trusted client uploaded into a spool directory:
// reached as the owner of that, and read as its own owner, who is not root.
bool OpenSessions(const char* spool, const char* dir, const char* name,
                  Upload* upload) {
  if (!OpenSpool(spool, upload) || !IsDirectory(dir, upload->dir.get())) {
    return false;
  }
  struct stat st;
  {
    const FileIdentity identity(upload->reader);
    if (!identity.held() ||
        fstatat(upload->dir.get(), name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
      return false;
    }
  }
  kut_fsid owner = {st.st_uid, st.st_gid};
  if (owner.uid == 0) owner = upload->reader;
  return OpenFile(owner, name, upload) &&
         (upload->st.st_uid == st.st_uid || geteuid() != 0);
}

bool OpenUpload(kx_object* cmd, const char* dir, const char* name,
                Upload* upload) {
  if (OpenOwn(cmd, dir, name, upload)) return true;
  return cmd_is_trusted(cmd) && (OpenSessions(file_dir, dir, name, upload) ||
                                 OpenSessions(netspool, dir, name, upload));
}

// Moves the uploaded file into the client's queue. 0, or -1 with errno, the
// same for all that the client may not see: no path is found out by asking.
int Store(kx_object* cmd, const char* path, const char* filename) {
  const char* base = Kut_basename(path);
  char dir[KX_PAIR_SIZE];
  snprintf(dir, sizeof dir, "%.*s", static_cast<int>(base - path), path);
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
      cmd_open_queue(cmd_client(cmd)), filename, upload.st.st_mode & 0666,
      FileReplacer::Over::kReplace);
}

}  // namespace

int process_imgstore(kx_object* cmd, kx_object* rsp) {
  kx_object* request = cmd_argument(cmd);
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
