#include "phonebook/pbfolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cm/cmkrt.h"
#include "cm/cmlimits.h"
#include "cm/cmpaths.h"
#include "util/kutdir.h"
#include "util/kutfile.h"

namespace {

constexpr unsigned kOwnersFileMode = 0600;

// A path that stays while others are asked for.
struct Path {
  explicit Path(const char* path) {
    snprintf(text, sizeof text, "%s", path);
    Kut_fix_dir_name(text);
  }
  char text[kCmPathSize];
};

Path FolderPath(const pb_book& book) {
  return Path(Kut_dirname(book.per_path));
}

bool IsUsersOwn(const pb_book& book, const pb_folder& folder) {
  return book.kind == kx_pbt_usr && folder.at.owner().uid != 0 &&
         folder.at.owner().uid != geteuid();
}

db_budget BudgetFor(const pb_book& book, const pb_folder& folder) {
  if (!IsUsersOwn(book, folder)) return {};
  return {static_cast<int>(cm_limit(cm_limit_id::kBookWait)),
          static_cast<int>(cm_limit(cm_limit_id::kBookSeconds)) * 1000};
}

// A new file has the group of its folder where that is setgid. Elsewhere it has
// that of its owner's login, which may be everybody's.
unsigned FileMode(const pb_folder& folder) {
  struct stat st;
  const bool shared =
      geteuid() != 0 || folder.at.owner().uid == 0 ||
      folder.at.owner().gid == static_cast<gid_t>(cm_get_krt_gid()) ||
      (fstat(folder.at.fd(), &st) == 0 && (st.st_mode & S_ISGID) != 0);
  return shared ? kDbFileMode : kOwnersFileMode;
}

// Gives away what this process has just made in root's own directory: a daemon
// that runs as the fax system's user has to use it as well. Nothing is given
// away that has another name, or that this user did not make.
void GiveAway(int dirfd, const char* name) {
  const UniqueFd fd(
      Kut_open_at(dirfd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
  struct stat st;
  if (!fd.valid() || fstat(fd.get(), &st) != 0 || st.st_uid != geteuid()) {
    return;
  }
  const bool is_only_name = S_ISREG(st.st_mode) && st.st_nlink == 1;
  if (!is_only_name && !S_ISDIR(st.st_mode)) return;
  static_cast<void>(!fchown(fd.get(), static_cast<uid_t>(cm_get_krt_uid()),
                            static_cast<gid_t>(cm_get_krt_gid())));
}

// Makes a folder in another.
cm_folder MakeIn(const cm_folder& parent, const char* name) {
  cm_folder made = cm_make_below(parent, name);
  if (made.valid() && parent.owner().uid == 0) GiveAway(parent.fd(), name);
  return made;
}

// The fax server's root directory, below which the user's books lie.
Path Root() { return FolderPath(pb_sys); }

// Opens a folder below the root directory, made with all that is missing above
// it.
cm_folder OpenMade(const Path& root, const char* path) {
  cm_folder folder = cm_open_folder(root.text, path);
  if (folder.valid() || errno != ENOENT) return folder;
  if (strcmp(path, root.text) == 0) {
    return Kut_make_dir_path(path) == 0 ? cm_open_folder(path, path)
                                        : cm_folder();
  }
  const Path above(Kut_dirname(path));
  const cm_folder parent = OpenMade(root, above.text);
  return parent.valid() ? MakeIn(parent, Kut_basename(path)) : cm_folder();
}

bool MakeFolder(const pb_book& book, const Path& path) {
  if (book.kind == kx_pbt_lcl) return Kut_make_dir_path(path.text) == 0;
  if (book.kind == kx_pbt_sys) return OpenMade(path, path.text).valid();
  const Path above(Kut_dirname(path.text));
  const cm_folder parent = OpenMade(Root(), above.text);
  return parent.valid() && MakeIn(parent, Kut_basename(path.text)).valid();
}

cm_folder Open(const pb_book& book, const Path& path) {
  switch (book.kind) {
    case kx_pbt_usr: {  // "options" of the queue directory that it lies in
      const Path root = Root();
      const Path queue(Kut_dirname(path.text));
      return cm_open_below(cm_open_folder(root.text, queue.text),
                           Kut_basename(path.text));
    }
    case kx_pbt_sys:
      return cm_open_folder(path.text, path.text);
    default:
      return cm_folder(UniqueFd(Kut_open(path.text, O_PATH | O_DIRECTORY)), {});
  }
}

}  // namespace

int pb_folder_open(const pb_book& book, pb_folder* folder) {
  *folder = {};
  folder->at = Open(book, FolderPath(book));
  if (!folder->at.valid()) return -1;
  folder->budget = BudgetFor(book, *folder);
  return 0;
}

int pb_folder_make(const pb_book& book, pb_folder* folder) {
  if (pb_folder_open(book, folder) != 0 &&
      (errno != ENOENT || !MakeFolder(book, FolderPath(book)) ||
       pb_folder_open(book, folder) != 0)) {
    return -1;
  }
  folder->file_mode = FileMode(*folder);
  return 0;
}

void pb_folder_give(const pb_book& book, const pb_folder& folder,
                    const char* name) {
  if (book.kind == kx_pbt_lcl || folder.at.owner().uid != 0) return;
  GiveAway(folder.at.fd(), name);
}

pb_visit::pb_visit(pb_folder* folder)
    : folder_(folder),
      identity_(folder->at.owner()),
      before_(db_swap_budget(folder->budget)) {
  db_set_folder(held() ? folder->at.fd() : -1, folder->file_mode);
}

pb_visit::~pb_visit() {
  db_set_folder(AT_FDCWD);
  folder_->budget = db_swap_budget(before_);
}
