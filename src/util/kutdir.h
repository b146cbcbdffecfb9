// Directories: making, removing, reading.
//
// - Unless it says otherwise, a function returns 0, or -1 with errno.
// - Streams are close-on-exec. A forked child must not read a stream that its
//   parent opened: both would move the same position.
#ifndef UTIL_KUTDIR_H_
#define UTIL_KUTDIR_H_

#include <dirent.h>
#include <fcntl.h>
#include <sys/types.h>

#include <ctime>
#include <utility>

constexpr int kKutDirNameSize = 256;  // bytes that hold any entry's name

// Makes one directory, mode 0777 less the umask. One that exists already is
// success (whatever it is that exists, as mkdir(2) cannot tell).
int Kut_make_dir(const char* path);
// The same with all that is missing above it; what exists must be directories.
int Kut_make_dir_path(const char* path);
// Removes an empty directory.
int Kut_delete_dir(const char* path);

// As their counterparts for files.
int Kut_set_dir_time(const char* path, time_t accessed, time_t modified);
int Kut_set_dir_perms(const char* path, mode_t mode);
int Kut_set_dir_owner(const char* path, int uid, int gid);

// Removes doubled and trailing "/" in place; the root stays "/". Returns
// `name`.
char* Kut_fix_dir_name(char* name);

// The one directory stream of the process. Kut_open_dir closes the one before.
int Kut_open_dir(const char* path);
// Copies the name of the next entry, never "." or "..", to `namebuf` of
// kKutDirNameSize bytes. 0; -1 at the end, on an error and when none is open.
int Kut_read_dir(char* namebuf);
// -1 with errno EBADF when none is open.
int Kut_close_dir();

// A directory stream of one's own. Nothing is allocated for an entry.
class DirReader {
 public:
  constexpr DirReader() = default;
  DirReader(DirReader&& other) noexcept
      : dir_(std::exchange(other.dir_, nullptr)) {}
  DirReader& operator=(DirReader&& other) noexcept {
    if (this != &other) {
      Close();
      dir_ = std::exchange(other.dir_, nullptr);
    }
    return *this;
  }
  DirReader(const DirReader&) = delete;
  DirReader& operator=(const DirReader&) = delete;
  ~DirReader() { Close(); }

  // Opens `path` relative to the directory `dirfd`; `flags` may add O_NOFOLLOW.
  // 0, or -1 with errno. What was open is closed either way.
  [[nodiscard]] int Open(const char* path, int dirfd = AT_FDCWD, int flags = 0);
  // The name of the next entry, never "." or "..", valid until the next call.
  // Null at the end (errno 0), on an error and when nothing is open (EBADF).
  const char* Next();
  // Back to the first entry; the directory is read afresh.
  void Rewind();
  // The descriptor, for openat and its like; -1 when nothing is open.
  int fd() const;
  bool is_open() const { return dir_ != nullptr; }
  // Closes the stream, errno kept. Does nothing when none is open.
  void Close();

 private:
  DIR* dir_ = nullptr;
};

#endif  // UTIL_KUTDIR_H_
