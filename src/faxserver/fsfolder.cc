#include "faxserver/fsfolder.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "util/kutfile.h"
#include "util/kutguard.h"

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

// Opens the folder that holds the last component of `path`, which is left in
// `last`, empty for the queue directory's own.
cm_folder OpenParent(const char* root, const char* user, const char* path,
                     std::string* last) {
  const char* queue = cm_get_user_dir(root, user);
  const char* below = BelowQueue(queue, path);
  if (below == nullptr) return cm_folder();
  // The queue directory itself lies in the fax system's, and may be a link that
  // an administrator made.
  cm_folder folder = cm_open_folder(root, queue);
  *last = below;
  for (size_t slash;
       folder.valid() && (slash = last->find('/')) != last->npos;) {
    folder = cm_open_below(folder, last->substr(0, slash).c_str());
    last->erase(0, slash + 1);
  }
  return folder;
}

// Root's files count only with the fax system's group, which a file that the
// user brought from elsewhere does not have.
bool IsFaxSystems(const struct stat& st) {
  const bool group = static_cast<int>(st.st_gid) == cm_get_krt_gid();
  return S_ISREG(st.st_mode) && st.st_nlink == 1 &&
         cm_is_krt_admin(static_cast<int>(st.st_uid)) &&
         (st.st_uid != 0 || group);
}

// Opens what the owner found there and may not read, if it is the fax system's.
UniqueFd OpenFaxSystems(int file, struct stat* st) {
  if (file < 0 || fstat(file, st) != 0) return UniqueFd();
  if (IsFaxSystems(*st)) return UniqueFd(Kut_reopen(file, O_RDONLY));
  errno = EACCES;
  return UniqueFd();
}

}  // namespace

cm_folder fx_open_folder(const char* root, const char* user, const char* path) {
  return Kut_guarded([&]() -> cm_folder {
    std::string last;
    cm_folder folder = OpenParent(root, user, path, &last);
    if (!folder.valid() || last.empty()) return folder;
    return cm_open_below(folder, last.c_str());
  });
}

cm_folder fx_make_options(const char* root, const char* user) {
  return cm_make_below(cm_open_folder(root, cm_get_user_dir(root, user)),
                       Kut_basename(cm_get_opts_dir(root, user)));
}

UniqueFd fx_open_in(const cm_folder& folder, const char* name,
                    struct stat* st) {
  struct stat own;
  if (st == nullptr) st = &own;
  if (!folder.valid()) return UniqueFd();
  UniqueFd file;
  {
    const FileIdentity owner = folder.Enter();
    if (!owner.held()) return UniqueFd();
    UniqueFd fd = fx_open_file(folder.fd(), name, fx_links::kRefuse, st);
    if (fd.valid() || errno != EACCES || geteuid() != 0) return fd;
    file.reset(Kut_open_at(folder.fd(), name, O_PATH | O_NOFOLLOW));
  }
  const FileIdentity self({});
  return OpenFaxSystems(file.get(), st);
}

UniqueFd fx_open_path(const char* root, const char* path) {
  return Kut_guarded([&]() -> UniqueFd {
    const char* faxq = cm_get_faxq_dir(root);
    const std::string queues = std::string(faxq) + "/";
    const std::string file = path;
    const size_t slash = file.find('/', queues.size());
    if (*faxq == '\0' || !file.starts_with(queues) || slash == file.npos) {
      return fx_open_file(AT_FDCWD, path, fx_links::kRefuse, nullptr);
    }
    const std::string user = file.substr(queues.size(), slash - queues.size());
    std::string last;
    const cm_folder folder = OpenParent(root, user.c_str(), path, &last);
    return fx_open_in(folder, last.c_str(), nullptr);
  });
}

fx_stream fx_open_user_stream(const char* root, const char* user,
                              const char* path) {
  return Kut_guarded([&]() -> fx_stream {
    std::string last;
    const cm_folder folder = OpenParent(root, user, path, &last);
    return fx_stream_on(fx_open_in(folder, last.c_str(), nullptr));
  });
}

int fx_replace_in(const cm_folder& folder, const char* name,
                  FileReplacer* file) {
  if (!folder.valid() || file->Open(name, 0666, folder.fd()) != 0) return -1;
  return file->KeepAttributes();
}

int fx_start_gift(const cm_folder& folder, const char* name, mode_t mode,
                  gid_t group, FileReplacer* file) {
  if (!folder.valid()) return -1;
  if (geteuid() == 0) {
    const int made =
        file->OpenNameless(name, mode, folder.fd(), folder.owner().uid, group);
    if (made == 0 || errno != EOPNOTSUPP) return made;
  }
  const FileIdentity owner = folder.Enter();
  if (!owner.held() || file->Open(name, mode, folder.fd()) != 0) return -1;
  return fchmod(file->fd(), mode);
}
