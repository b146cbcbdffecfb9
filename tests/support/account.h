// A user account of the machine for a test, removed at its end. Only root can
// make one, and only where the machine has the programs for it; elsewhere such
// a test is skipped.
#ifndef SUPPORT_ACCOUNT_H_
#define SUPPORT_ACCOUNT_H_

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/sample_root.h"

class Account {
 public:
  // The user is also a member of a group of its own making.
  Account() {
    if (getuid() != 0) return;
    const std::string pid = std::to_string(getpid());
    group_ = "krtg" + pid;
    name_ = "krtu" + pid;
    // Somebody else's change of the user database may be under way.
    made_ = support::Eventually(
        [&] {
          return Run("groupadd -f " + group_) &&
                 Run("useradd -M -G " + group_ + " " + name_);
        },
        std::chrono::seconds(5));
    const passwd* entry = getpwnam(name_.c_str());
    if (entry != nullptr) uid_ = entry->pw_uid;
    if (entry != nullptr) gid_ = entry->pw_gid;
  }
  Account(const Account&) = delete;
  Account& operator=(const Account&) = delete;
  ~Account() {
    if (group_.empty()) return;
    support::Eventually([&] { return Run("userdel " + name_) || !made_; });
    support::Eventually([&] { return Run("groupdel " + group_) || !made_; });
  }

  bool made() const { return made_; }
  const std::string& name() const { return name_; }
  uid_t uid() const { return uid_; }
  gid_t gid() const { return gid_; }
  // What "id -G" prints for it.
  std::string Groups() const {
    FILE* pipe = popen(("id -G " + name_).c_str(), "r");
    char line[256] = "";
    if (pipe == nullptr || fgets(line, sizeof line, pipe) == nullptr) return "";
    pclose(pipe);
    return line;
  }

 private:
  static bool Run(const std::string& command) {
    return system((command + " > /dev/null 2>&1").c_str()) == 0;
  }

  std::string group_, name_;
  bool made_ = false;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
};

#define SKIP_WITHOUT_ACCOUNT(account) \
  if (!(account).made()) GTEST_SKIP() << "needs root and useradd"

#endif  // SUPPORT_ACCOUNT_H_
