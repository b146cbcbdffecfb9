// System calls that move bytes, and the owner of a descriptor.
//
// - Every call here repeats what a signal interrupted, goes on after a short
//   read or write, opens close-on-exec, and keeps errno as the failing call
//   left it.
// - None allocates, except where a std::string is returned.
#ifndef UTIL_KUTIO_H_
#define UTIL_KUTIO_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <climits>
#include <cstddef>
#include <utility>

// Owns one file descriptor and closes it when it goes out of scope.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  // Gives the descriptor up; the caller closes it.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }
  // Closes the present descriptor, errno kept, and takes `fd`.
  void reset(int fd = -1);

 private:
  int fd_ = -1;
};

// open(2) with O_CLOEXEC added, relative to `dirfd` (AT_FDCWD for a path of its
// own). A descriptor, or -1 with errno.
int Kut_open_at(int dirfd, const char* path, int flags, mode_t mode = 0);
int Kut_open(const char* path, int flags, mode_t mode = 0);
// Opens a regular file for reading, with `flags` (O_NOFOLLOW or 0) added;
// nothing else is opened, so that a fifo or a device where others can write
// neither holds nor feeds the reader. Fills `st` (null: no matter). The
// descriptor, or -1 with errno: EISDIR for a directory, EINVAL for any other
// kind of file, otherwise what open(2) said.
int Kut_open_regular(int dirfd, const char* path, int flags,
                     struct stat* st = nullptr);

// Opens anew what a descriptor of any kind (O_PATH, too) has open, whatever has
// become of its name, without waiting (for somebody's lease, say). The
// descriptor, or -1 with errno; it takes /proc.
int Kut_reopen(int fd, int flags);

// Reads up to `size` bytes, fewer only at the end of the file. The bytes read,
// or -1 with errno.
ssize_t Kut_read_full(int fd, void* buf, size_t size);
ssize_t Kut_pread_full(int fd, void* buf, size_t size, off_t offset);

// Writes all of `size` bytes. 0, or -1 with errno, after which any part of the
// bytes may have been written.
int Kut_write_full(int fd, const void* buf, size_t size);
int Kut_pwrite_full(int fd, const void* buf, size_t size, off_t offset);

// Copies all that is left of `from` to `to`, in constant memory. 0, or -1 with
// errno, after which any part may have been written: EFBIG where there are more
// than `most` bytes.
int Kut_copy_bytes(int from, int to, long most = LONG_MAX);

#endif  // UTIL_KUTIO_H_
