// A user database of the test's own, beside that of the machine: the accounts
// exist for this process and its children only. It takes a mount namespace, so
// that only root, and not in every container, has one.
#ifndef SUPPORT_OWN_ACCOUNTS_H_
#define SUPPORT_OWN_ACCOUNTS_H_

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <string>

#include "support/temp_dir.h"

class OwnAccounts {
 public:
  // The lines are added to the machine's passwd and group. All of /etc is
  // covered: a cover on a file ends when somebody replaces the file beneath,
  // as useradd does.
  OwnAccounts(const std::string& passwd, const std::string& group) {
    Copy("passwd", passwd);
    Copy("group", group);
    Copy("nsswitch.conf", "");
    made_ = unshare(CLONE_NEWNS) == 0 &&
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount(dir_.path().c_str(), "/etc", nullptr, MS_BIND, nullptr) == 0;
  }
  OwnAccounts(const OwnAccounts&) = delete;
  OwnAccounts& operator=(const OwnAccounts&) = delete;
  ~OwnAccounts() {
    if (made_) umount2("/etc", MNT_DETACH);
  }
  bool made() const { return made_; }

 private:
  void Copy(const std::string& name, const std::string& more) const {
    WriteFile(dir_ / name, ReadFile("/etc/" + name) + more);
  }

  const TempDir dir_;
  bool made_ = false;
};

#endif  // SUPPORT_OWN_ACCOUNTS_H_
