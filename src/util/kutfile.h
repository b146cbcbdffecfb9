// File names, single files, and the one way to replace a file.
//
// - Unless it says otherwise, a function returns 0, or -1 with errno.
// - In a name, "/" and "\" both end a directory part, as in names that come
//   from clients. The system calls know "/" alone.
// - Permissions and times are set through a symbolic link: where others can
//   write, use fchmod and futimens on an open descriptor instead.
#ifndef UTIL_KUTFILE_H_
#define UTIL_KUTFILE_H_

#include <fcntl.h>
#include <sys/types.h>

#include <climits>
#include <cstddef>
#include <cstdio>
#include <ctime>

#include "util/kutio.h"

// The part of `path` after the last "/" or "\", all of it if there is none.
// Points into `path`.
const char* Kut_basename(const char* path);
// The part before that: "." if there is none, the root for a file in it. In a
// static buffer; null with errno ENAMETOOLONG when it has PATH_MAX characters
// or more.
const char* Kut_dirname(const char* path);

// The text after the last "." of the base name, possibly empty, or null. Points
// into `name`.
const char* Kut_get_file_ext(const char* name);
// Gives `name` the extension `ext`, in place; a leading "." of `ext` is
// skipped, a null or empty `ext` removes the extension. `name` must have room
// for its own length, a ".", `ext` and the final zero. Returns 0.
int Kut_set_file_ext(char* name, const char* ext);
// Removes the extension and its ".", in place. Returns 0.
int Kut_rmv_file_ext(char* name);

// 1 when `path`, links followed, is what the name says, else 0. An executable
// file is a regular one with any execute permission bit.
int Kut_is_reg_file(const char* path);
int Kut_is_directory(const char* path);
int Kut_is_exec_file(const char* path);

int Kut_delete_file(const char* path);
int Kut_rename_file(const char* from, const char* to);
int Kut_link_file(const char* from, const char* to);
// Renames `from` to `to`, both relative to `dirfd`, unless there is a `to`:
// then -1 with EEXIST. A file system that cannot do that (NFS, say) overwrites.
int Kut_rename_fresh(int dirfd, const char* from, const char* to);

// Copies the regular file `from`, any size in constant memory, over `to`, with
// the permissions of `from` less the umask. `to` is replaced in one step: on
// failure it is as it was, and when it did not exist there is none. EINVAL when
// `from` is not a regular file.
int Kut_copy_file(const char* from, const char* to);

int Kut_set_file_perms(const char* path, mode_t mode);
// -1 leaves an id as it is. A symbolic link itself changes hands, never what it
// points to.
int Kut_set_file_owner(const char* path, int uid, int gid);
int Kut_set_file_time(const char* path, time_t accessed, time_t modified);

// Replaces a file in one step: readers see the old content or all of the new.
//
//     FileReplacer file;
//     if (file.Open(path, 0644) != 0) return -1;
//     fprintf(file.stream(), ...);        // or Kut_write_full(file.fd(), ...)
//     return file.Commit();
//
// - The new content goes to a file of its own in the same directory, whose name
//   starts with "." and has the extension "new-<pid>-<n>": no directory scan
//   for an extension finds it. It is created afresh, links are not followed.
// - Without a successful Commit the target is untouched and the new file is
//   removed. A process that is killed in between leaves it behind.
class FileReplacer {
 public:
  enum class Sync {
    kNone,     // survives the end of the process
    kDurable,  // survives the end of the machine: file and directory are synced
  };

  FileReplacer() = default;
  FileReplacer(const FileReplacer&) = delete;
  FileReplacer& operator=(const FileReplacer&) = delete;
  ~FileReplacer() { Abandon(); }

  // Whether Commit may replace a file; if not, one that is there is EEXIST.
  enum class Over { kReplace, kKeep };

  // Starts the replacement of `path`, relative to the directory `dirfd`, which
  // the caller keeps open until Commit. `mode` is subject to the umask. 0, or
  // -1 with errno. A replacement still open is abandoned.
  [[nodiscard]] int Open(const char* path, mode_t mode, int dirfd = AT_FDCWD);

  // The same with a file that has no name before Commit, so that nobody can get
  // at it before its owner, group and `mode` (past the umask) are what they are
  // to be; whoever then calls Commit must be allowed to link it: its owner, or
  // root. EOPNOTSUPP where the file system knows no such files.
  [[nodiscard]] int OpenNameless(const char* path, mode_t mode, int dirfd,
                                 uid_t uid, gid_t gid);

  // Gives the new file the owner, group and permissions of the regular file
  // that it replaces, as far as this process may; without one it stays as it
  // was made. 0, or -1 with errno when the target cannot be looked at.
  [[nodiscard]] int KeepAttributes();

  // The descriptor of the new file; owned by this object.
  int fd() const { return fd_.get(); }
  // A stream on it, made at the first call and owned by this object; null with
  // errno on failure. Write through the stream or the descriptor, not both.
  FILE* stream();

  // Puts the new file in place. 0, or -1 with errno, also when an earlier write
  // to the stream failed; either way the object can be opened again. After a
  // failure the target is as it was.
  [[nodiscard]] int Commit(Sync sync = Sync::kNone, Over over = Over::kReplace);
  // Removes the new file; errno is kept. Does nothing when none is open.
  void Abandon();

 private:
  int Begin(const char* path, int dirfd);
  int NextName();
  int TakeName();
  void RemoveTemporary() const;
  int Flush(Sync sync);
  int PutInPlace(Sync sync, Over over) const;
  int Exchange() const;

  int dirfd_ = -1;
  UniqueFd fd_;  // open while a replacement is under way
  FILE* stream_ = nullptr;
  char target_[PATH_MAX] = "";
  char temp_[PATH_MAX] = "";  // "": nameless so far
};

#endif  // UTIL_KUTFILE_H_
