// Files of the user's: private folders, copies, and files that are replaced.
#ifndef CTL_APP_FILES_H_
#define CTL_APP_FILES_H_

#include <functional>
#include <string>

#include "link/status.h"
#include "util/kutio.h"

namespace client {

// A fresh folder that only this user can enter, removed with what is in it.
class PrivateDir {
 public:
  PrivateDir() = default;
  PrivateDir(const PrivateDir&) = delete;
  PrivateDir& operator=(const PrivateDir&) = delete;
  ~PrivateDir();

  // Makes it in `parent`.
  Status Make(const std::string& parent);
  const std::string& path() const { return path_; }
  bool empty() const;
  // Lets it stay.
  void Keep() { path_.clear(); }

 private:
  std::string path_;
};

// The folder for temporary files: TMPDIR, else /tmp.
std::string TemporaryParent();

// Copies everything from the beginning of the file `from` to where `to` is.
Status CopyAll(int from, int to, const std::string& what);
// Copies a stream that cannot be read twice into a file without a name.
Status SpoolStream(int from, const std::string& dir, UniqueFd* file);
// The content of a file, "-" for standard input.
Status ReadWhole(const std::string& path, std::string* content);
// Has `write` write a file to the descriptor that it is given. It takes the
// place of an earlier one, whose permissions it keeps, in one step and when all
// of it is written. What is no regular file, a device or a pipe, is written to
// as it is.
Status ReplaceFile(const std::string& path,
                   const std::function<Status(int fd)>& write);
// The same for a file that is not there yet: what somebody puts in its place
// meanwhile is left alone (krt_cannot_create).
Status CreateFile(const std::string& path,
                  const std::function<Status(int fd)>& write);
Status WriteWhole(const std::string& path, const std::string& content);

}  // namespace client

#endif  // CTL_APP_FILES_H_
