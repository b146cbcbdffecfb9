// The programs under test, run by a test.
#ifndef SUPPORT_PROCESSES_H_
#define SUPPORT_PROCESSES_H_

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/sample_root.h"

namespace support {

struct Exit {
  int status = -1;  // exit status, or -1 for an end by a signal
  std::string out;
  std::string err;
};

// Runs the program to its end, with this KFAXDIR unless it is empty, and
// collects what it wrote.
Exit RunProgram(const std::string& program,
                const std::vector<std::string>& args,
                const std::string& kfaxdir = "");
// The same of a line for the shell.
Exit RunShell(const std::string& line);

// The process ids of the children of `pid`.
std::vector<pid_t> ChildrenOf(pid_t pid);

// A program that runs beside the test, killed at the end of its life if it
// still runs.
class Process {
 public:
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  ~Process();

  pid_t pid() const { return pid_; }
  // Waits for the end, having sent the signal unless that is 0: the exit
  // status, or -1 when it did not end, or not by itself.
  int Stop(int sig = 15);
  // What it has written so far, and a wait until that holds the text.
  std::string Said() const;
  bool Await(const std::string& text) const;

 protected:
  // Its error output goes to the file `err`, or to one of its own.
  Process(const std::string& program, const std::vector<std::string>& args,
          const std::string& kfaxdir = "", const std::string& err = "");

 private:
  const TempDir folder_;
  const std::string out_ = folder_ / "out", err_;
  pid_t pid_ = -1;
};

// The daemon in the foreground, its log in the root's folder.
class DaemonProcess : public Process {
 public:
  // `args` come after "-Z F".
  DaemonProcess(const std::string& program, const SampleRoot& root,
                const std::vector<std::string>& args = {});
  std::string Log() const { return Said(); }
  bool AwaitLog(const std::string& text) const { return Await(text); }
};

// "krtsim run ROOT ARGS", the simulator of the rest of the fax server. It owns
// the machine's status segment while it runs: a test that starts it has an
// OwnIpc (support/own_ipc.h) before it.
class SimulatorProcess : public Process {
 public:
  SimulatorProcess(const std::string& program, const SampleRoot& root,
                   const std::vector<std::string>& args = {});
};

}  // namespace support

#endif  // SUPPORT_PROCESSES_H_
