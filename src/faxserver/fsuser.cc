#include "faxserver/fsuser.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "util/kutdir.h"
#include "util/kuterr.h"
#include "util/kutfile.h"

namespace {

// What follows the queue directory in a path; null, with errno, in one that
// does not lie there.
const char* BelowQueue(const char* queue, const char* path) {
  const size_t length = strlen(queue);
  if (length != 0 && strncmp(path, queue, length) == 0) {
    if (path[length] == '/') return path + length + 1;
    if (path[length] == '\0') return path + length;
  }
  errno = ENOENT;
  return nullptr;
}

// Opens the directory that holds the last component of `below`, which is left
// in `last`.
UniqueFd OpenParent(const char* queue, const char* below, std::string* last) {
  UniqueFd dir(Kut_open(queue, O_PATH | O_DIRECTORY));
  *last = below;
  for (size_t slash; dir.valid() && (slash = last->find('/')) != last->npos;) {
    dir.reset(Kut_open_at(dir.get(), last->substr(0, slash).c_str(),
                          O_PATH | O_DIRECTORY | O_NOFOLLOW));
    last->erase(0, slash + 1);
  }
  return dir;
}

}  // namespace

UniqueFd fx_open_user_dir(const char* root, const char* user,
                          const char* path) try {
  const char* queue = cm_get_user_dir(root, user);
  const char* below = BelowQueue(queue, path);
  if (below == nullptr) return UniqueFd();
  std::string last;
  UniqueFd dir = OpenParent(queue, below, &last);
  if (!dir.valid() || last.empty()) return dir;
  return UniqueFd(
      Kut_open_at(dir.get(), last.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW));
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return UniqueFd();
}

UniqueFd fx_make_options_dir(const char* root, const char* user) {
  const char* path = cm_get_opts_dir(root, user);
  if (Kut_make_dir(path) != 0) return UniqueFd();
  return fx_open_user_dir(root, user, path);
}

int fx_replace_option(int dirfd, const char* path, FileReplacer* file) {
  struct stat st;
  if (dirfd < 0 || fstat(dirfd, &st) != 0 ||
      file->Open(Kut_basename(path), 0666, dirfd) != 0) {
    return -1;
  }
  if (fchown(file->fd(), st.st_uid, static_cast<gid_t>(-1)) != 0 &&
      errno != EPERM) {
    return -1;
  }
  return file->KeepAttributes();
}

fx_stream fx_open_user_stream(const char* root, const char* user,
                              const char* path) try {
  const char* queue = cm_get_user_dir(root, user);
  const char* below = BelowQueue(queue, path);
  if (below == nullptr) return nullptr;
  std::string last;
  const UniqueFd dir = OpenParent(queue, below, &last);
  if (!dir.valid()) return nullptr;
  return fx_open_stream_at(dir.get(), last.c_str(), fx_links::kRefuse);
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return nullptr;
}

bool fx_is_valid_user(const char* root, const char* user) {
  // The path of a name that is none is empty, and no directory.
  return Kut_is_directory(cm_get_user_dir(root, user)) != 0;
}

bool fx_get_identity(const char* user, bool or_krt, kut_identity* identity,
                     const kut_identity** result) {
  errno = 0;
  const passwd* entry = user != nullptr ? getpwnam(user) : nullptr;
  if (entry == nullptr && or_krt && !Kut_is_shortage(errno)) {
    user = cm_get_krt_uname();
    entry = getpwnam(user);
  }
  if (entry == nullptr) {
    if (errno == 0) errno = ENOENT;
    return false;
  }
  *identity = {entry->pw_uid, entry->pw_gid, user};
  *result = identity;
  if (geteuid() == 0) return true;
  *result = nullptr;
  errno = EPERM;
  return identity->uid == geteuid();
}
