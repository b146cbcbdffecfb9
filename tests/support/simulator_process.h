// The fax server's simulator, run by a test.
//
// - It owns the machine's status segment while it runs: a test that starts it
//   has an OwnIpc (support/own_ipc.h) before it.
#ifndef SUPPORT_SIMULATOR_PROCESS_H_
#define SUPPORT_SIMULATOR_PROCESS_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/sample_root.h"

namespace support {

class SimulatorProcess {
 public:
  // Runs "krtsim run ROOT ARGS" and waits until it is ready. Its output goes to
  // two files beside the root.
  SimulatorProcess(const std::string& program, const SampleRoot& root,
                   const std::vector<std::string>& args = {});
  SimulatorProcess(const SimulatorProcess&) = delete;
  SimulatorProcess& operator=(const SimulatorProcess&) = delete;
  // Kills it if it still runs.
  ~SimulatorProcess();

  pid_t pid() const { return pid_; }
  // What it has said so far, on both outputs.
  std::string Said() const;
  // Waits until it has said the text.
  bool Await(const std::string& text) const;
  // Waits for its end, having sent the signal unless that is 0: the exit
  // status, or -1 when it did not end, or not by itself.
  int Stop(int sig = 15);

 private:
  pid_t pid_ = -1;
  std::string out_, err_;
};

}  // namespace support

#endif  // SUPPORT_SIMULATOR_PROCESS_H_
