// Copies of files for the server, in the spool directory.
//
// - A command cannot carry a file, so it names a copy that lies where the
//   server can take it by a rename: <spool>/NNNN-RRR.<n>.<type>, after the
//   command's own name. While it is there, nobody else takes the number.
// - The answer ends a copy's life: what the server wants of it, it has taken by
//   then. Without an answer it stays, until `collect` brings that.
#ifndef CTL_APP_STAGING_H_
#define CTL_APP_STAGING_H_

#include <string>
#include <vector>

#include "link/status.h"
#include "util/kutio.h"

namespace client {

// A file to be sent, open.
struct Source {
  std::string path;  // as given; "-" for standard input
  std::string type;  // the server's name for what it is
  UniqueFd fd;
};

// Opens a file, or takes all of standard input. krt_no_input when it is
// missing, empty, or no file.
Status OpenSource(const std::string& path, Source* source);

class Staging {
 public:
  // `dry`: only names are made, no files.
  Staging(const std::string& spool, const std::string& name, bool dry)
      : base_(spool + "/" + name + "."), dry_(dry) {}
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;
  ~Staging();

  // Copies a file; the copy's path goes to `path`.
  Status Add(const Source& source, std::string* path);
  Status AddText(const std::string& text, std::string* path);
  // The command is under way without an answer: the copies stay.
  void Keep() { paths_.clear(); }

 private:
  Status Create(const std::string& type, UniqueFd* fd, std::string* path);

  std::string base_;
  bool dry_;
  int count_ = 0;
  std::vector<std::string> paths_;
};

// Removes the copies of a command that was answered.
void RemoveStaged(const std::string& spool, const std::string& name);

}  // namespace client

#endif  // CTL_APP_STAGING_H_
