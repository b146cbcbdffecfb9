#include "support/processes.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "support/child.h"

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

// The caller waits for it.
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

std::vector<std::string> Joined(std::vector<std::string> first,
                                const std::vector<std::string>& more) {
  first.insert(first.end(), more.begin(), more.end());
  return first;
}

}  // namespace

Exit RunProgram(const std::string& program,
                const std::vector<std::string>& args,
                const std::string& kfaxdir) {
  const TempDir folder;
  const pid_t pid =
      StartProgram(program, args, kfaxdir, folder / "out", folder / "err");
  Exit result;
  result.status = Reaped(pid);
  result.out = ReadFile(folder / "out");
  result.err = ReadFile(folder / "err");
  return result;
}

Exit RunShell(const std::string& line) {
  return RunProgram("/bin/sh", {"-c", line});
}

std::vector<pid_t> ChildrenOf(pid_t pid) {
  const std::string id = std::to_string(pid);
  std::ifstream file("/proc/" + id + "/task/" + id + "/children");
  std::vector<pid_t> pids;
  for (pid_t child; file >> child;) pids.push_back(child);
  return pids;
}

Process::Process(const std::string& program,
                 const std::vector<std::string>& args,
                 const std::string& kfaxdir, const std::string& err)
    : err_(err.empty() ? folder_ / "err" : err),
      pid_(StartProgram(program, args, kfaxdir, out_, err_)) {}

Process::~Process() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

int Process::Stop(int sig) {
  int status = 0;
  if (sig != 0) kill(pid_, sig);
  const bool ended =
      Eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
  if (!ended) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Process::Said() const { return ReadFile(out_) + ReadFile(err_); }

bool Process::Await(const std::string& text) const {
  return Eventually([&] { return Said().find(text) != std::string::npos; });
}

DaemonProcess::DaemonProcess(const std::string& program, const SampleRoot& root,
                             const std::vector<std::string>& args)
    : Process(program, Joined({"-Z", "F"}, args), root.path(),
              root / ("log-" + std::to_string(g_started++))) {
  // It is in the register before it looks at its directory, and before it
  // catches the signals that end it.
  const std::string entry = std::to_string(pid()) + ":";
  if (!Eventually([&] {
        return ReadFile(root / "krtnet/krtnet.lck").find(entry) !=
                   std::string::npos &&
               Catches(pid(), SIGTERM);
      })) {
    throw std::runtime_error("the daemon did not start: " + Log());
  }
}

SimulatorProcess::SimulatorProcess(const std::string& program,
                                   const SampleRoot& root,
                                   const std::vector<std::string>& args)
    : Process(program, Joined({"run", root.path()}, args)) {
  if (!Await("ready: ")) {
    throw std::runtime_error("the simulator did not start: " + Said());
  }
}

}  // namespace support
