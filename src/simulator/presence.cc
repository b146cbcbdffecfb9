#include "simulator/presence.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "cm/cmdaemon.h"
#include "faxserver/fsdmnlst.h"
#include "util/kuterr.h"

namespace sim {
namespace {

constexpr const char* kNames[] = {kCmFileDaemon, kCmNetDaemon};

}  // namespace

bool RootLock::Take(const std::string& root) {
  dir_.reset(Kut_open(root.c_str(), O_RDONLY | O_DIRECTORY));
  // The kernel gives it back however the process ends; a file with a process id
  // would outlive a kill.
  return dir_.valid() && flock(dir_.get(), LOCK_EX | LOCK_NB) == 0;
}

Registration::~Registration() {
  if (root_.empty()) return;
  for (const char* name : kNames) fx_upd_daemon_list(root_.c_str(), name);
}

bool Registration::Enter(const std::string& root, std::string* reason) {
  // Leaving removes every entry of the name: it must be nobody else's.
  for (const char* name : kNames) {
    const pid_t pid = fx_chk_daemon_list(root.c_str(), name);
    if (pid <= 0) continue;
    *reason =
        std::string(name) + " runs already, process " + std::to_string(pid);
    return false;
  }
  // Before the first entry: what is made of them until a failure is taken back.
  root_ = root;
  for (const char* name : kNames) {
    if (fx_add_daemon_list(root.c_str(), name, getpid()) == 0) continue;
    *reason = std::string("cannot register: ") + Kut_sys_errstr();
    return false;
  }
  return true;
}

}  // namespace sim
