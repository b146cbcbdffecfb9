#include "cm/cmfolder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"

namespace {

constexpr int kFolder = O_PATH | O_DIRECTORY;

bool IsFaxSystems(const kut_fsid& owner) {
  return cm_is_krt_admin(static_cast<int>(owner.uid));
}

// The folder of that name, opened as the owner of the one that it is in.
cm_folder Enter(const cm_folder& folder, const char* name, int flags) {
  UniqueFd fd;
  {
    const FileIdentity identity = folder.Enter();
    if (!folder.valid() || !identity.held()) return cm_folder();
    fd.reset(Kut_open_at(folder.fd(), name, kFolder | flags));
  }
  // Whose it is is this process's to ask, not the owner's.
  const FileIdentity self({});
  kut_fsid owner;
  if (!fd.valid() || !self.held() || !Kut_owner_of(fd.get(), &owner)) {
    return cm_folder();
  }
  const bool by_owner =
      owner.uid != 0 && (IsFaxSystems(owner) || IsFaxSystems(folder.owner()));
  return cm_folder(std::move(fd), by_owner ? owner : folder.owner());
}

}  // namespace

bool cm_is_in_tree(const char* root, const char* path) {
  const size_t length = strlen(root);
  if (length == 0 || strncmp(path, root, length) != 0) return false;
  return root[length - 1] == '/' || path[length] == '/' || path[length] == '\0';
}

cm_folder cm_open_folder(const char* root, const char* path) {
  if (!cm_is_in_tree(root, path)) {
    errno = ENOENT;
    return cm_folder();
  }
  UniqueFd fd(Kut_open(root, kFolder));
  kut_fsid owner;
  if (!fd.valid() || !Kut_owner_of(fd.get(), &owner)) return cm_folder();
  cm_folder folder(std::move(fd), owner);
  char name[kCmPathSize];
  for (const char* at = path + strlen(root); folder.valid();) {
    at += strspn(at, "/");
    const size_t part = strcspn(at, "/");
    if (part == 0) break;
    if (part >= sizeof name) {
      errno = ENAMETOOLONG;
      return cm_folder();
    }
    snprintf(name, sizeof name, "%.*s", static_cast<int>(part), at);
    folder = Enter(folder, name, 0);
    at += part;
  }
  return folder;
}

cm_folder cm_open_below(const cm_folder& folder, const char* name) {
  return Enter(folder, name, O_NOFOLLOW);
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
