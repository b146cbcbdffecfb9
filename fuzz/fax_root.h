// A fax server's root in memory, with the user "ann", for files that an input
// is the content of.
#ifndef FUZZ_FAX_ROOT_H_
#define FUZZ_FAX_ROOT_H_

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <initializer_list>
#include <string>

#include "fuzz/check.h"
#include "util/kutio.h"

namespace fuzz {

class FaxRoot {
 public:
  FaxRoot() {
    const bool in_memory = std::filesystem::exists("/dev/shm");
    std::string name =
        in_memory ? "/dev/shm/fax_fuzz-XXXXXX" : "/tmp/fax_fuzz-XXXXXX";
    CHECK(mkdtemp(name.data()) != nullptr);
    path_ = name;
    for (const char* folder :
         {"Classes", "logs", "krtnet", "requests", "expired", "temp",
          "faxq/ann/options", "faxq/ann/msgs", "faxq/ann/events"}) {
      std::filesystem::create_directories(path_ + "/" + folder);
    }
  }
  ~FaxRoot() { std::filesystem::remove_all(path_); }

  const char* path() const { return path_.c_str(); }

  // Gives a file this content.
  void Put(const char* file, const std::string& content) const {
    const UniqueFd fd(Kut_open(file, O_WRONLY | O_CREAT | O_TRUNC, 0600));
    CHECK(fd.valid() &&
          Kut_write_full(fd.get(), content.data(), content.size()) == 0);
  }

 private:
  std::string path_;
};

// One for the process.
inline const FaxRoot& Root() {
  static const FaxRoot root;
  return root;
}

}  // namespace fuzz

#endif  // FUZZ_FAX_ROOT_H_
