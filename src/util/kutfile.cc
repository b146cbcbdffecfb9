#include "util/kutfile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int kNameTries = 1000;  // leftovers of killed processes with this pid

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

int Fail(int error) {
  errno = error;
  return -1;
}

// The permission and type bits of `path`; 0, which no file has, when it cannot
// be looked at.
mode_t ModeOf(const char* path) {
  struct stat st;
  return stat(path, &st) == 0 ? st.st_mode : 0;
}

// The length of the part of `path` up to and with its last "/".
size_t DirectoryLength(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash == nullptr ? 0 : static_cast<size_t>(slash - path) + 1;
}

// The directory part of `path`, "." if there is none.
void OwnDirectory(const char* path, char (&directory)[PATH_MAX]) {
  const size_t length = DirectoryLength(path);
  snprintf(directory, sizeof directory, "%.*s", static_cast<int>(length), path);
  if (length == 0) strcpy(directory, ".");
}

}  // namespace

const char* Kut_basename(const char* path) {
  const char* base = path;
  for (const char* p = path; *p != '\0'; p++) {
    if (IsSeparator(*p)) base = p + 1;
  }
  return base;
}

const char* Kut_dirname(const char* path) {
  static char buffer[PATH_MAX];
  const char* base = Kut_basename(path);
  if (base == path) return ".";
  size_t length = static_cast<size_t>(base - path) - 1;
  if (length == 0) length = 1;  // a file in the root
  if (length >= sizeof buffer) {
    errno = ENAMETOOLONG;
    return nullptr;
  }
  memcpy(buffer, path, length);
  buffer[length] = '\0';
  return buffer;
}

const char* Kut_get_file_ext(const char* name) {
  const char* dot = strrchr(Kut_basename(name), '.');
  return dot == nullptr ? nullptr : dot + 1;
}

int Kut_set_file_ext(char* name, const char* ext) {
  if (ext != nullptr && *ext == '.') ext++;
  if (ext == nullptr || *ext == '\0') return Kut_rmv_file_ext(name);
  const char* old = Kut_get_file_ext(name);
  char* end =
      name + (old != nullptr ? static_cast<size_t>(old - name) : strlen(name));
  if (old == nullptr) *end++ = '.';
  memmove(end, ext, strlen(ext) + 1);  // `ext` may be a part of `name`
  return 0;
}

int Kut_rmv_file_ext(char* name) {
  const char* ext = Kut_get_file_ext(name);
  if (ext != nullptr) name[ext - name - 1] = '\0';
  return 0;
}

int Kut_is_reg_file(const char* path) { return S_ISREG(ModeOf(path)) ? 1 : 0; }

int Kut_is_directory(const char* path) { return S_ISDIR(ModeOf(path)) ? 1 : 0; }

int Kut_is_exec_file(const char* path) {
  const mode_t mode = ModeOf(path);
  return S_ISREG(mode) && (mode & 0111) != 0 ? 1 : 0;
}

int Kut_delete_file(const char* path) { return unlink(path); }

int Kut_rename_file(const char* from, const char* to) {
  return rename(from, to);
}

int Kut_link_file(const char* from, const char* to) { return link(from, to); }

int Kut_rename_fresh(int dirfd, const char* from, const char* to) {
  if (renameat2(dirfd, from, dirfd, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  return renameat(dirfd, from, dirfd, to);
}

int Kut_copy_file(const char* from, const char* to) {
  struct stat st;
  const UniqueFd source(Kut_open_regular(AT_FDCWD, from, 0, &st));
  if (!source.valid()) return -1;
  FileReplacer copy;
  if (copy.Open(to, st.st_mode & 0777) != 0) return -1;
  if (Kut_copy_bytes(source.get(), copy.fd()) != 0) return -1;
  return copy.Commit();
}

int Kut_set_file_perms(const char* path, mode_t mode) {
  return chmod(path, mode);
}

int Kut_set_file_owner(const char* path, int uid, int gid) {
  return lchown(path, static_cast<uid_t>(uid), static_cast<gid_t>(gid));
}

int Kut_set_file_time(const char* path, time_t accessed, time_t modified) {
  const timespec times[2] = {{accessed, 0}, {modified, 0}};
  return utimensat(AT_FDCWD, path, times, 0);
}

int FileReplacer::Begin(const char* path, int dirfd) {
  Abandon();
  if (strlen(path) >= sizeof target_) return Fail(ENAMETOOLONG);
  if (path[DirectoryLength(path)] == '\0') {
    return Fail(*path == '\0' ? ENOENT : EISDIR);
  }
  strcpy(target_, path);
  temp_[0] = '\0';
  dirfd_ = dirfd;
  return 0;
}

int FileReplacer::NextName() {
  static constinit unsigned g_serial = 0;
  const int length = snprintf(temp_, sizeof temp_, "%.*s.new-%d-%u",
                              static_cast<int>(DirectoryLength(target_)),
                              target_, static_cast<int>(getpid()), g_serial++);
  if (static_cast<size_t>(length) < sizeof temp_) return 0;
  temp_[0] = '\0';
  return Fail(ENAMETOOLONG);
}

int FileReplacer::Open(const char* path, mode_t mode, int dirfd) {
  if (Begin(path, dirfd) != 0) return -1;
  for (int i = 0; i < kNameTries; i++) {
    if (NextName() != 0) return -1;
    fd_.reset(Kut_open_at(dirfd_, temp_,
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode));
    if (fd_.valid()) return 0;
    if (errno != EEXIST) return -1;
  }
  return -1;
}

int FileReplacer::OpenNameless(const char* path, mode_t mode, int dirfd,
                               uid_t uid, gid_t gid) {
  if (Begin(path, dirfd) != 0) return -1;
  char directory[PATH_MAX];
  OwnDirectory(target_, directory);
  UniqueFd fd(Kut_open_at(dirfd, directory, O_TMPFILE | O_WRONLY, 0));
  // A kernel or file system that does not know the flag sees a directory that
  // is to be written.
  if (!fd.valid()) return Fail(errno == EISDIR ? EOPNOTSUPP : errno);
  if (fchown(fd.get(), uid, gid) != 0 || fchmod(fd.get(), mode) != 0) return -1;
  fd_ = std::move(fd);
  return 0;
}

// Gives a nameless file its temporary name: a link, unlike a rename, cannot
// replace the target.
int FileReplacer::TakeName() {
  char file[32];
  snprintf(file, sizeof file, "/proc/self/fd/%d", fd_.get());
  for (int i = 0; i < kNameTries; i++) {
    if (NextName() != 0) return -1;
    if (linkat(AT_FDCWD, file, dirfd_, temp_, AT_SYMLINK_FOLLOW) == 0) return 0;
    if (errno != EEXIST) break;
  }
  temp_[0] = '\0';  // not this file's
  return -1;
}

int FileReplacer::KeepAttributes() {
  struct stat st;
  if (fstatat(dirfd_, target_, &st, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? 0 : -1;
  }
  if (!S_ISREG(st.st_mode)) return 0;
  // The owner first, since giving a file away takes permission bits off. Only
  // root may; to others the old permissions matter all the more.
  if (fchown(fd_.get(), st.st_uid, st.st_gid) != 0 && errno != EPERM) return -1;
  return fchmod(fd_.get(), st.st_mode & 07777);
}

FILE* FileReplacer::stream() {
  if (stream_ == nullptr && fd_.valid()) stream_ = fdopen(fd_.get(), "w");
  return stream_;
}

int FileReplacer::Commit(Sync sync, Over over) {
  if (!fd_.valid()) return Fail(EBADF);
  const bool ready = Flush(sync) == 0 && (temp_[0] != '\0' || TakeName() == 0);
  int error = ready ? 0 : errno;
  // Some file systems tell only at the close that there was no room.
  const int closed = stream_ != nullptr ? fclose(stream_) : close(fd_.get());
  if (error == 0 && closed != 0 && errno != EINTR) error = errno;
  stream_ = nullptr;
  static_cast<void>(fd_.release());
  if (error == 0 && PutInPlace(sync, over) != 0) error = errno;
  if (error == 0) return 0;
  RemoveTemporary();
  return Fail(error);
}

// A durable change is taken back when the disk does not take it: until then
// what was replaced stays under the temporary name.
int FileReplacer::PutInPlace(Sync sync, Over over) const {
  if (sync == Sync::kNone && over == Over::kReplace) {
    return renameat(dirfd_, temp_, dirfd_, target_);
  }
  char directory[PATH_MAX];
  OwnDirectory(target_, directory);
  const UniqueFd dir(Kut_open_at(dirfd_, directory, O_RDONLY | O_DIRECTORY));
  if (!dir.valid()) return -1;
  const bool is_new = Kut_rename_fresh(dirfd_, temp_, target_) == 0;
  if (!is_new && (errno != EEXIST || over == Over::kKeep || Exchange() != 0)) {
    return -1;
  }
  if (fsync(dir.get()) == 0) {
    if (!is_new) unlinkat(dirfd_, temp_, 0);
    return 0;
  }
  const int error = errno;
  if (is_new) {
    renameat(dirfd_, target_, dirfd_, temp_);
  } else {
    Exchange();
  }
  return Fail(error);
}

// Swaps the new file and the one that it replaces, which must be no directory.
int FileReplacer::Exchange() const {
  struct stat old;
  if (fstatat(dirfd_, target_, &old, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISDIR(old.st_mode)) {
    return Fail(EISDIR);
  }
  return renameat2(dirfd_, temp_, dirfd_, target_, RENAME_EXCHANGE);
}

void FileReplacer::Abandon() {
  if (!fd_.valid()) return;
  const int saved = errno;
  if (stream_ != nullptr) {
    fclose(stream_);
    stream_ = nullptr;
    static_cast<void>(fd_.release());
  }
  fd_.reset();
  RemoveTemporary();
  errno = saved;
}

void FileReplacer::RemoveTemporary() const {
  if (temp_[0] != '\0') unlinkat(dirfd_, temp_, 0);
}

int FileReplacer::Flush(Sync sync) {
  if (stream_ != nullptr) {
    if (fflush(stream_) != 0) return -1;
    if (ferror(stream_) != 0) return Fail(EIO);  // its errno is long gone
  }
  return sync == Sync::kDurable ? fsync(fd_.get()) : 0;
}
