// Accounts of the tests' own in place of the machine's: they exist for this
// process and its children only. It takes a mount namespace, so that only root,
// and not in every container, has them.
#ifndef SUPPORT_ACCOUNTS_H_
#define SUPPORT_ACCOUNTS_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/temp_dir.h"

// The fax system and its users, each with a group of that number but the clerk,
// who is one of the staff and of the fax system's group.
constexpr uid_t kKrtfax = 64101, kAlice = 64102, kClerk = 64103, kBob = 64105,
                kMallory = 64106, kRunner = 64107;
constexpr gid_t kStaff = 64104;
constexpr char kFaxPasswd[] =
    "krtfax:x:64101:64101::/:/bin/sh\nalice:x:64102:64102::/:/bin/sh\n"
    "clerk:x:64103:64104::/:/bin/sh\nbob:x:64105:64105::/:/bin/sh\n"
    "mallory:x:64106:64106::/:/bin/sh\nrunner:x:64107:64107::/:/bin/sh\n";
constexpr char kFaxGroup[] =
    "krtfax:x:64101:clerk\nalice:x:64102:\nstaff:x:64104:\nmallory:x:64106:\n";

class OwnAccounts {
 public:
  // The lines of passwd and of group beside those of every system. All of /etc
  // is covered: a cover on a file ends when somebody replaces the file beneath.
  // What programs need of it to start is copied.
  explicit OwnAccounts(const std::string& passwd = kFaxPasswd,
                       const std::string& group = kFaxGroup) {
    WriteFile(dir_ / "passwd",
              "root:x:0:0:root:/root:/bin/sh\n"
              "daemon:x:1:1::/:/bin/sh\nbin:x:2:2::/:/bin/sh\n"
              "nobody:x:65534:65534::/nonexistent:/bin/sh\n" +
                  passwd);
    WriteFile(dir_ / "group",
              "root:x:0:\ndaemon:x:1:\nbin:x:2:\nnogroup:x:65534:\n" + group);
    WriteFile(dir_ / "nsswitch.conf", "passwd: files\ngroup: files\n");
    WriteFile(dir_ / "ld.so.cache", ReadFile("/etc/ld.so.cache"));
    chmod(dir_.path().c_str(), 0755);
    mkdir((dir_ / "alternatives").c_str(), 0755);
    if (unshare(CLONE_NEWNS) != 0) return;
    const int alternatives = open("/etc/alternatives", O_PATH | O_CLOEXEC);
    made_ = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
            mount(dir_.path().c_str(), "/etc", nullptr, MS_BIND, nullptr) == 0;
    // On the cover, so that nothing of it lies in the folder to be removed.
    const std::string from = "/proc/self/fd/" + std::to_string(alternatives);
    if (made_) {
      mount(from.c_str(), "/etc/alternatives", nullptr, MS_BIND, nullptr);
    }
    close(alternatives);
  }
  OwnAccounts(const OwnAccounts&) = delete;
  OwnAccounts& operator=(const OwnAccounts&) = delete;
  ~OwnAccounts() {
    if (made_) umount2("/etc", MNT_DETACH);
  }
  bool made() const { return made_; }

 private:
  const TempDir dir_;
  bool made_ = false;
};

#define SKIP_WITHOUT_ACCOUNTS(accounts) \
  if (!(accounts).made()) GTEST_SKIP() << "needs root and mount(2)"

#endif  // SUPPORT_ACCOUNTS_H_
