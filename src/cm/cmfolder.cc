#include "cm/cmfolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "cm/cmkrt.h"

namespace {

bool IsFaxSystems(const kut_fsid& owner) {
  return cm_is_krt_admin(static_cast<int>(owner.uid));
}

}  // namespace

cm_folder cm_open_folder(const char* path) {
  UniqueFd fd(Kut_open(path, O_PATH | O_DIRECTORY));
  kut_fsid owner;
  if (!fd.valid() || !Kut_owner_of(fd.get(), &owner)) return cm_folder();
  return cm_folder(std::move(fd), owner);
}

cm_folder cm_open_below(const cm_folder& folder, const char* name) {
  const FileIdentity identity = folder.Enter();
  if (!folder.valid() || !identity.held()) return cm_folder();
  UniqueFd fd(
      Kut_open_at(folder.fd(), name, O_PATH | O_DIRECTORY | O_NOFOLLOW));
  kut_fsid owner;
  if (!fd.valid() || !Kut_owner_of(fd.get(), &owner)) return cm_folder();
  const bool by_owner =
      owner.uid != 0 && (IsFaxSystems(owner) || IsFaxSystems(folder.owner()));
  return cm_folder(std::move(fd), by_owner ? owner : folder.owner());
}

cm_folder cm_make_below(const cm_folder& folder, const char* name) {
  const FileIdentity identity = folder.Enter();
  struct stat st;
  if (!folder.valid() || !identity.held() || fstat(folder.fd(), &st) != 0) {
    return cm_folder();
  }
  // Not the daemon's umask: the fax system's group must be able to write here,
  // whatever the daemon is run as another time. And no change of the mode
  // afterwards: a user's takes the set-group-id bit away.
  const mode_t mode = (st.st_mode & S_ISGID) != 0 ? 0775 : 0755;
  const mode_t before = umask(0);
  const int made = mkdirat(folder.fd(), name, st.st_mode & mode);
  const int saved = errno;
  umask(before);
  errno = saved;
  if (made != 0 && errno != EEXIST) return cm_folder();
  return cm_open_below(folder, name);
}
