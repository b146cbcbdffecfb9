#include "phonebook/pbfolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "cm/cmkrt.h"
#include "cm/cmlimits.h"
#include "cm/cmpaths.h"
#include "util/kutdir.h"
#include "util/kutfile.h"

namespace {

constexpr int kFolder = O_PATH | O_DIRECTORY;
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
  return book.kind == kx_pbt_usr && folder.owner.uid != 0 &&
         folder.owner.uid != geteuid();
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
      geteuid() != 0 || folder.owner.uid == 0 ||
      folder.owner.gid == static_cast<gid_t>(cm_get_krt_gid()) ||
      (fstat(folder.fd.get(), &st) == 0 && (st.st_mode & S_ISGID) != 0);
  return shared ? kDbFileMode : kOwnersFileMode;
}

// Opens "options" of the queue directory that it lies in, as its owner.
int OpenUsers(const Path& path, pb_folder* folder) {
  const UniqueFd queue(Kut_open(Kut_dirname(path.text), kFolder));
  if (!queue.valid() || !Kut_owner_of(queue.get(), &folder->owner)) return -1;
  const FileIdentity identity(folder->owner);
  if (!identity.held()) return -1;
  folder->fd.reset(
      Kut_open_at(queue.get(), Kut_basename(path.text), kFolder | O_NOFOLLOW));
  return folder->fd.valid() ? 0 : -1;
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

// Makes a directory in another as the owner of that. What is setgid stays the
// group's, whatever the umask: its mode cannot be mended later, as a chmod by
// an owner who is not in the group takes the setgid bit away.
int MakeIn(int parent, const char* name) {
  struct stat st;
  kut_fsid owner;
  if (fstat(parent, &st) != 0 || !Kut_owner_of(parent, &owner)) return -1;
  const FileIdentity identity(owner);
  if (!identity.held()) return -1;
  const bool shared = (st.st_mode & S_ISGID) != 0;
  const mode_t umask_before = shared ? umask(0007) : 0;
  const int made = mkdirat(parent, name, shared ? 0770 : 0755);
  if (shared) umask(umask_before);
  if (made == 0 && owner.uid == 0) GiveAway(parent, name);
  return made == 0 || errno == EEXIST ? 0 : -1;
}

// Opens a directory, made with all that is missing above it.
UniqueFd OpenMade(const char* path) {
  UniqueFd fd(Kut_open(path, kFolder));
  if (fd.valid() || errno != ENOENT) return fd;
  const Path above(Kut_dirname(path));
  const UniqueFd parent = OpenMade(above.text);
  if (!parent.valid() || MakeIn(parent.get(), Kut_basename(path)) != 0) {
    return UniqueFd();
  }
  return UniqueFd(Kut_open(path, kFolder));
}

int MakeFolder(const pb_book& book, const Path& path) {
  if (book.kind == kx_pbt_lcl) return Kut_make_dir_path(path.text);
  const Path above(Kut_dirname(path.text));
  const UniqueFd parent = OpenMade(above.text);
  return parent.valid() ? MakeIn(parent.get(), Kut_basename(path.text)) : -1;
}

}  // namespace

int pb_folder_open(const pb_book& book, pb_folder* folder) {
  *folder = {};
  const Path path = FolderPath(book);
  if (book.kind == kx_pbt_usr) {
    if (OpenUsers(path, folder) != 0) return -1;
  } else {
    folder->fd.reset(Kut_open(path.text, kFolder));
    if (!folder->fd.valid()) return -1;
  }
  if (book.kind == kx_pbt_sys &&
      !Kut_owner_of(folder->fd.get(), &folder->owner)) {
    folder->fd.reset();
    return -1;
  }
  folder->budget = BudgetFor(book, *folder);
  return 0;
}

int pb_folder_make(const pb_book& book, pb_folder* folder) {
  if (pb_folder_open(book, folder) != 0 &&
      (errno != ENOENT || MakeFolder(book, FolderPath(book)) != 0 ||
       pb_folder_open(book, folder) != 0)) {
    return -1;
  }
  folder->file_mode = FileMode(*folder);
  return 0;
}

void pb_folder_give(const pb_book& book, const pb_folder& folder,
                    const char* name) {
  if (book.kind == kx_pbt_lcl || folder.owner.uid != 0) return;
  GiveAway(folder.fd.get(), name);
}

pb_visit::pb_visit(pb_folder* folder)
    : folder_(folder),
      identity_(folder->owner),
      before_(db_swap_budget(folder->budget)) {
  db_set_folder(held() ? folder->fd.get() : -1, folder->file_mode);
}

pb_visit::~pb_visit() {
  db_set_folder(AT_FDCWD);
  folder_->budget = db_swap_budget(before_);
}
