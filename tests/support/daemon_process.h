// The real daemon, run by a test.
#ifndef SUPPORT_DAEMON_PROCESS_H_
#define SUPPORT_DAEMON_PROCESS_H_

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

// Starts a program with its output in two files and, unless it is empty, with
// this KFAXDIR. The caller waits for it.
pid_t StartProgram(const std::string& program,
                   const std::vector<std::string>& args,
                   const std::string& kfaxdir, const std::string& out,
                   const std::string& err);

// Runs the program to its end and collects what it wrote.
Exit RunProgram(const std::string& program,
                const std::vector<std::string>& args,
                const std::string& kfaxdir = "");

// Starts the daemon in the foreground on a root, its log in the root's
// folder; kills it at the end of its life if it still runs.
class DaemonProcess {
 public:
  // `args` come after "-Z F".
  DaemonProcess(const std::string& program, const SampleRoot& root,
                const std::vector<std::string>& args = {});
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;
  ~DaemonProcess();

  pid_t pid() const { return pid_; }
  // Sends a signal and waits for the end: the exit status, or -1 when it did
  // not end, or not by itself.
  int Stop(int sig = 15);
  std::string Log() const;
  // Waits until the log holds the text.
  bool AwaitLog(const std::string& text) const;

 private:
  pid_t pid_ = -1;
  std::filesystem::path log_;
};

}  // namespace support

#endif  // SUPPORT_DAEMON_PROCESS_H_
