#include "commands/cmdhand.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "cm/cmlimits.h"
#include "daemon/spool/logfile.h"
#include "util/kuterr.h"

namespace {

// Whether the name is still that of the open file.
bool IsInPlace(const cmd_original& from) {
  struct stat now;
  return fstatat(from.dirfd, from.name, &now, AT_SYMLINK_NOFOLLOW) == 0 &&
         now.st_dev == from.st.st_dev && now.st_ino == from.st.st_ino;
}

// Makes this command the one that moves the fax; false with errno when the
// reader may not remove it or somebody else is at it. The lock ends with the
// descriptor. A file system without locks knows no better.
bool Claim(const cmd_original& from) {
  const FileIdentity reader(from.reader);
  if (!reader.held() ||
      faccessat(from.dirfd, ".", W_OK | X_OK, AT_EACCESS) != 0) {
    return false;
  }
  if (flock(from.fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    return false;
  }
  if (IsInPlace(from)) return true;
  errno = ENOENT;
  return false;
}

// Not what has taken the name meanwhile: the copy, in a move onto itself, or a
// new fax.
void Remove(const cmd_original& from) {
  const FileIdentity reader(from.reader);
  if (!reader.held() || !IsInPlace(from)) return;
  if (unlinkat(from.dirfd, from.name, 0) == 0) return;
  dmn_logf("Cannot remove %s after its copy: %s", from.name, Kut_sys_errstr());
}

}  // namespace

int cmd_copy_fax(const cmd_original& from, const cm_folder& to,
                 const char* name, mode_t mode, FileReplacer::Over over) {
  struct stat queue;
  FileReplacer copy;
  if (!to.valid() || fstat(to.fd(), &queue) != 0 ||
      fx_start_gift(to, name, mode, queue.st_gid, &copy) != 0) {
    return -1;
  }
  const timespec times[2] = {from.st.st_atim, from.st.st_mtim};
  const FileIdentity owner = to.Enter();
  const long most = cm_limit(cm_limit_id::kFileBytes);
  if (!owner.held() || Kut_copy_bytes(from.fd, copy.fd(), most) != 0) {
    copy.Abandon();  // as the owner, while this process is that
    return -1;
  }
  // What fails here the receiver can do without.
  futimens(copy.fd(), times);
  return copy.Commit(FileReplacer::Sync::kDurable, over);
}

int cmd_move_fax(const cmd_original& from, const cm_folder& to,
                 const char* name, mode_t mode, FileReplacer::Over over) {
  if (!Claim(from) || cmd_copy_fax(from, to, name, mode, over) != 0) return -1;
  Remove(from);
  return 0;
}
