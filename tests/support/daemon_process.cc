#include "support/daemon_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace support {
namespace {

int g_started = 0;  // daemons, each with a log of its own

// Whether the process has a handler for the signal.
bool Catches(pid_t pid, int sig) {
  constexpr char kCaught[] = "SigCgt:";
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kCaught)) continue;
    return ((std::stoull(line.substr(sizeof kCaught - 1), nullptr, 16) >>
             (sig - 1)) &
            1) != 0;
  }
  return false;
}

}  // namespace

pid_t StartProgram(const std::string& program,
                   const std::vector<std::string>& args,
                   const std::string& kfaxdir, const std::string& out,
                   const std::string& err) {
  std::vector<char*> argv = {const_cast<char*>(program.c_str())};
  for (const auto& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  if (!kfaxdir.empty()) setenv("KFAXDIR", kfaxdir.c_str(), 1);
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND;
  dup2(open(out.c_str(), kFlags, 0600), STDOUT_FILENO);
  dup2(open(err.c_str(), kFlags, 0600), STDERR_FILENO);
  execv(argv[0], argv.data());
  _exit(127);
}

Exit RunProgram(const std::string& program,
                const std::vector<std::string>& args,
                const std::string& kfaxdir) {
  const TempDir folder;
  const pid_t pid =
      StartProgram(program, args, kfaxdir, folder / "out", folder / "err");
  Exit result;
  int status = 0;
  if (waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
    result.status = WEXITSTATUS(status);
  }
  result.out = ReadFile(folder / "out");
  result.err = ReadFile(folder / "err");
  return result;
}

DaemonProcess::DaemonProcess(const std::string& program, const SampleRoot& root,
                             const std::vector<std::string>& args)
    : log_(root.path() / ("log-" + std::to_string(g_started++))) {
  std::vector<std::string> all = {"-Z", "F"};
  all.insert(all.end(), args.begin(), args.end());
  pid_ = StartProgram(program, all, root.path(), root.path() / "out", log_);
  // It is in the register before it looks at its directory, and before it
  // catches the signals that end it.
  const auto registered = root.path() / "krtnet/krtnet.lck";
  const std::string entry = std::to_string(pid_) + ":";
  if (!Eventually([&] {
        return ReadFile(registered).find(entry) != std::string::npos &&
               Catches(pid_, SIGTERM);
      })) {
    throw std::runtime_error("the daemon did not start: " + Log());
  }
}

DaemonProcess::~DaemonProcess() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

int DaemonProcess::Stop(int sig) {
  int status = 0;
  kill(pid_, sig);
  const bool ended =
      Eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
  if (!ended) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string DaemonProcess::Log() const { return ReadFile(log_); }

bool DaemonProcess::AwaitLog(const std::string& text) const {
  return Eventually([&] { return Log().find(text) != std::string::npos; });
}

}  // namespace support
