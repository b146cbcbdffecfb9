#include "support/simulator_process.h"

#include <signal.h>
#include <sys/wait.h>

#include <stdexcept>

#include "support/daemon_process.h"

namespace support {

SimulatorProcess::SimulatorProcess(const std::string& program,
                                   const SampleRoot& root,
                                   const std::vector<std::string>& args)
    : out_(root.path().string() + ".said"),
      err_(root.path().string() + ".complained") {
  std::vector<std::string> all = {"run", root.path()};
  all.insert(all.end(), args.begin(), args.end());
  pid_ = StartProgram(program, all, "", out_, err_);
  if (!Await("ready: ")) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    throw std::runtime_error("the simulator did not start: " + Said());
  }
}

SimulatorProcess::~SimulatorProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  std::filesystem::remove(out_);
  std::filesystem::remove(err_);
}

std::string SimulatorProcess::Said() const {
  return ReadFile(out_) + ReadFile(err_);
}

bool SimulatorProcess::Await(const std::string& text) const {
  return Eventually([&] { return Said().find(text) != std::string::npos; });
}

int SimulatorProcess::Stop(int sig) {
  int status = 0;
  if (sig != 0) kill(pid_, sig);
  const bool ended =
      Eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; });
  if (!ended) return -1;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace support
