// krtctl on a fax server's root of a test's own.
#ifndef SUPPORT_CTL_H_
#define SUPPORT_CTL_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/processes.h"
#include "support/sample_root.h"
#include "util/kutuser.h"

namespace ctl {

using support::Eventually;
using support::Exit;

// A root with the caller as its fax user; the real daemon where a test starts
// it.
class Server {
 public:
  Server() : user_(Kut_get_usrname()) {
    root_.AddUser(user_);
    std::filesystem::permissions(root_.spool(), std::filesystem::perms(0700));
  }
  // `args` for the daemon.
  void Start(const std::vector<std::string>& args = {}) {
    daemon_ =
        std::make_unique<support::DaemonProcess>(KRTCMD_PATH, root_, args);
  }
  void Stop() { daemon_.reset(); }
  // Makes a daemon seem to run that takes no command: this process.
  void Pretend() const {
    WriteFile(root_.path() / "krtnet/krtnet.lck",
              std::to_string(getpid()) + ":krtcmd\n");
  }

  Exit Run(std::vector<std::string> args) const {
    args.insert(args.begin(), {"--root", root_.path()});
    return support::RunProgram(KRTCTL_PATH, args);
  }
  // A shell command line in which "krtctl" is the program under test, and
  // $KRTCTL its path.
  Exit Shell(const std::string& line) const {
    const std::string function = "KRTCTL=" KRTCTL_PATH
                                 "\nkrtctl() { $KRTCTL --root '" +
                                 root_.path().string() + "' \"$@\"; }\n";
    return support::RunProgram("/bin/sh", {"-c", function + line});
  }

  // The first command in the spool, once there is one: its base name.
  std::string AwaitCommand() const {
    std::string found;
    Eventually([&] {
      for (const std::string& name : root_.SpoolNames()) {
        if (name.ends_with(".cmd")) found = name.substr(0, name.size() - 4);
      }
      return !found.empty();
    });
    return found;
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

// Damages all of a phone book's index but its head; the bytes that it has then.
inline std::string Damage(const std::string& index) {
  std::string bytes = ReadFile(index);
  for (size_t i = 64; i < bytes.size(); ++i) bytes[i] ^= 0x55;
  WriteFile(index, bytes);
  return bytes;
}

// One command of a session: its line, how it must end, and how it ended.
struct Step {
  std::string line, out, err;
  int status = 0;
};

// Takes a session apart, see Session().
inline std::vector<Step> Steps(const std::string& text) {
  std::vector<Step> steps;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    const size_t digits = line.find_first_not_of("0123456789");
    if (digits != line.npos && line[digits] == '$') {
      steps.push_back({line.substr(digits + 1), "", ""});
      steps.back().status = std::atoi(line.c_str());
    } else if (line.starts_with("! ")) {
      steps.back().err += "krtctl: " + line.substr(2) + "\n";
    } else if (line.starts_with("!")) {
      steps.back().err += line.substr(1) + "\n";
    } else if (!steps.empty()) {
      steps.back().out += line + "\n";
    } else {
      EXPECT_EQ(line, "") << "before the first command";
    }
  }
  EXPECT_FALSE(steps.empty()) << text;
  return steps;
}

// Does what a session at the shell shows, and compares all of the output:
//
//     $ krtctl ping -q            a command line, with status 0
//     66$ krtctl fax put -        one that ends with another status
//     stored                      what it prints
//     ! fax put: ...              an error line that begins with "krtctl: "
//     !{"type":"error"}           any other line of the error output
//
// "*" and "!*" are any output; ROOT, SPOOL and USER are the server's.
inline void Session(const Server& server, std::string text) {
  const std::pair<std::string, std::string> kNames[] = {
      {"SPOOL", server.root().spool()},
      {"ROOT", server.root().path()},
      {"USER", server.user()}};
  for (const auto& [name, value] : kNames) {
    for (size_t at = 0; (at = text.find(name, at)) != text.npos;
         at += value.size()) {
      text.replace(at, name.size(), value);
    }
  }
  for (const Step& step : Steps(text)) {
    SCOPED_TRACE(step.line);
    const Exit end = server.Shell(step.line);
    EXPECT_EQ(end.status, step.status);
    EXPECT_EQ(step.out == "*\n" ? "*\n" : end.out, step.out);
    EXPECT_EQ(step.err == "*\n" ? "*\n" : end.err, step.err);
  }
}

}  // namespace ctl

#endif  // SUPPORT_CTL_H_
