// A user database of the test's own, beside that of the machine: the accounts
// exist for this process and its children only. It takes a mount namespace, so
// that only root, and not in every container, has one.
#ifndef SUPPORT_OWN_ACCOUNTS_H_
#define SUPPORT_OWN_ACCOUNTS_H_

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <string>

#include "support/temp_dir.h"

class OwnAccounts {
 public:
  // The lines are added to the machine's /etc/passwd and /etc/group.
  OwnAccounts(const std::string& passwd, const std::string& group) {
    made_ = unshare(CLONE_NEWNS) == 0 &&
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            Cover("passwd", passwd) && Cover("group", group);
  }
  OwnAccounts(const OwnAccounts&) = delete;
  OwnAccounts& operator=(const OwnAccounts&) = delete;
  ~OwnAccounts() {
    if (!made_) return;
    umount2("/etc/passwd", MNT_DETACH);
    umount2("/etc/group", MNT_DETACH);
  }
  bool made() const { return made_; }

 private:
  bool Cover(const std::string& name, const std::string& more) const {
    const std::string own = dir_ / name;
    WriteFile(own, ReadFile("/etc/" + name) + more);
    return mount(own.c_str(), ("/etc/" + name).c_str(), nullptr, MS_BIND,
                 nullptr) == 0;
  }

  const TempDir dir_;
  bool made_ = false;
};

#endif  // SUPPORT_OWN_ACCOUNTS_H_
