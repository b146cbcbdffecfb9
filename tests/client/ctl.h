// krtctl on a fax server's root of a test's own.
#ifndef CLIENT_CTL_H_
#define CLIENT_CTL_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/daemon_process.h"
#include "support/sample_root.h"
#include "util/kutuser.h"

namespace ctl {

using support::Eventually;
using support::Exit;
using support::ReadFile;
using support::WriteFile;

// A root with the caller as its fax user; the real daemon where a test starts
// it.
class Server {
 public:
  Server() : user_(Kut_get_usrname()) {
    root_.AddUser(user_);
    std::filesystem::permissions(root_.spool(), std::filesystem::perms(0770));
  }
  // `args` for the daemon.
  void Start(const std::vector<std::string>& args = {}) {
    daemon_ =
        std::make_unique<support::DaemonProcess>(KRTCMD_PATH, root_, args);
  }
  void Stop() { daemon_.reset(); }
  // Makes a daemon seem to run that takes no command: this process.
  void Pretend() {
    WriteFile(root_.path() / "krtnet/krtnet.lck",
              std::to_string(getpid()) + ":krtcmd\n");
  }

  Exit Run(std::vector<std::string> args) const {
    args.insert(args.begin(), {"--root", root_.path()});
    return support::RunProgram(KRTCTL_PATH, args);
  }
  // A shell command line in which "krtctl" is the program under test.
  Exit Shell(const std::string& line) const {
    const std::string function = "krtctl() { " KRTCTL_PATH " --root '" +
                                 root_.path().string() + "' \"$@\"; }\n";
    return support::RunProgram("/bin/sh", {"-c", function + line});
  }

  const support::SampleRoot& root() const { return root_; }
  const std::string& user() const { return user_; }
  std::string Path(const std::string& name) const {
    return root_.path() / name;
  }
  std::string Queue(const std::string& name) const {
    return Path("faxq/" + user_ + "/" + name);
  }

 private:
  support::SampleRoot root_;
  std::string user_;
  std::unique_ptr<support::DaemonProcess> daemon_;
};

// One command line, and how it ends: the whole output, unless it is "*".
struct Case {
  std::vector<std::string> args;
  int status;
  std::string out;
  std::string err;
};

inline std::string Words(const std::vector<std::string>& args) {
  std::string text = "krtctl";
  for (const std::string& arg : args) text += " " + arg;
  return text;
}

inline void Expect(const Server& server, const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(Words(c.args));
    const Exit end = server.Run(c.args);
    EXPECT_EQ(end.status, c.status);
    EXPECT_EQ(c.out == "*" ? "*" : end.out, c.out);
    EXPECT_EQ(c.err == "*" ? "*" : end.err, c.err);
  }
}

}  // namespace ctl

#endif  // CLIENT_CTL_H_
