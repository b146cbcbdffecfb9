#include "util/kutdir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "util/kutfile.h"
#include "util/kutio.h"
#include "util/kutstr.h"

namespace {

constinit DirReader g_dir;

bool IsDotName(const char* name) {
  return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// 0 when `path` is a directory now, whoever made it.
int EnsureDirectory(const char* path) {
  if (mkdir(path, 0777) == 0) return 0;
  const int error = errno;
  if (Kut_is_directory(path)) return 0;
  errno = error == EEXIST ? ENOTDIR : error;
  return -1;
}

}  // namespace

int Kut_make_dir(const char* path) {
  return mkdir(path, 0777) == 0 || errno == EEXIST ? 0 : -1;
}

int Kut_make_dir_path(const char* path) {
  char part[PATH_MAX];
  if (strlen(path) >= sizeof part) {
    errno = ENAMETOOLONG;
    return -1;
  }
  strcpy(part, path);
  Kut_fix_dir_name(part);
  for (char* p = part + 1; part[0] != '\0' && *p != '\0'; p++) {
    if (*p != '/') continue;
    *p = '\0';
    if (EnsureDirectory(part) != 0) return -1;
    *p = '/';
  }
  return EnsureDirectory(part);
}

int Kut_delete_dir(const char* path) { return rmdir(path); }

int Kut_set_dir_time(const char* path, time_t accessed, time_t modified) {
  return Kut_set_file_time(path, accessed, modified);
}

int Kut_set_dir_perms(const char* path, mode_t mode) {
  return Kut_set_file_perms(path, mode);
}

int Kut_set_dir_owner(const char* path, int uid, int gid) {
  return Kut_set_file_owner(path, uid, gid);
}

char* Kut_fix_dir_name(char* name) {
  char* out = name;
  for (const char* p = name; *p != '\0'; p++) {
    if (*p == '/' && out > name && out[-1] == '/') continue;
    *out++ = *p;
  }
  if (out > name + 1 && out[-1] == '/') out--;
  *out = '\0';
  return name;
}

int Kut_open_dir(const char* path) { return g_dir.Open(path); }

int Kut_read_dir(char* namebuf) {
  const char* name = g_dir.Next();
  if (name == nullptr) return -1;
  Kut_strcpyz(namebuf, name, kKutDirNameSize);
  return 0;
}

int Kut_close_dir() {
  if (!g_dir.is_open()) {
    errno = EBADF;
    return -1;
  }
  g_dir.Close();
  return 0;
}

int DirReader::Open(const char* path, int dirfd, int flags) {
  Close();
  UniqueFd fd(Kut_open_at(dirfd, path, O_RDONLY | O_DIRECTORY | flags));
  if (!fd.valid()) return -1;
  dir_ = fdopendir(fd.get());
  if (dir_ == nullptr) return -1;
  static_cast<void>(fd.release());  // the stream has it now
  return 0;
}

const char* DirReader::Next() {
  if (dir_ == nullptr) {
    errno = EBADF;
    return nullptr;
  }
  for (;;) {
    errno = 0;  // the only way to tell the end from an error
    const dirent* entry = readdir(dir_);
    if (entry == nullptr && errno == EINTR) continue;
    if (entry == nullptr) return nullptr;
    if (!IsDotName(entry->d_name)) return entry->d_name;
  }
}

void DirReader::Rewind() {
  if (dir_ != nullptr) rewinddir(dir_);
}

int DirReader::fd() const { return dir_ != nullptr ? dirfd(dir_) : -1; }

void DirReader::Close() {
  if (dir_ == nullptr) return;
  const int saved = errno;
  closedir(dir_);
  dir_ = nullptr;
  errno = saved;
}
