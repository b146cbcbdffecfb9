// A root that krtsim itself laid out, with the caller and "bob" as its users.
#ifndef SIMULATOR_SIM_ROOT_H_
#define SIMULATOR_SIM_ROOT_H_

#include <sys/stat.h>

#include <map>
#include <stdexcept>
#include <string>

#include "support/processes.h"
#include "support/sample_root.h"
#include "util/kutuser.h"

class SimRoot : public support::SampleRoot {
 public:
  // Whom the tests act as: only a user whom the system knows may cancel.
  SimRoot() : user_(Kut_get_usrname()) {
    for (const auto& entry : std::filesystem::directory_iterator(path())) {
      std::filesystem::remove_all(entry);
    }
    const support::Exit end =
        Sim({"init", path(), "--user", user_, "-u", "bob", "-q"});
    if (end.status != 0) throw std::runtime_error("krtsim init: " + end.err);
  }

  const std::string& user() const { return user_; }
  // Runs krtsim.
  static support::Exit Sim(const std::vector<std::string>& args) {
    return support::RunProgram(KRTSIM_PATH, args);
  }
  // What krtsim says when it ends with that status and prints nothing.
  static std::string Refusal(int status, const std::vector<std::string>& args) {
    const support::Exit end = Sim(args);
    EXPECT_EQ(end.status, status);
    EXPECT_EQ(end.out, "");
    return end.err;
  }
  std::string Path(const std::string& name) const { return *this / name; }
  // Everything in it: the mode of each path.
  std::map<std::string, mode_t> Tree() const {
    std::map<std::string, mode_t> tree;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(path())) {
      struct stat st;
      if (lstat(entry.path().c_str(), &st) == 0) {
        tree[entry.path().lexically_relative(path())] = st.st_mode;
      }
    }
    return tree;
  }

 private:
  std::string user_;
};

#endif  // SIMULATOR_SIM_ROOT_H_
