#include "client/daemons.h"

#include <signal.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>

#include "cm/cmpaths.h"

namespace client {

std::vector<DaemonEntry> ReadRegister(const std::string& root) {
  std::ifstream file(cm_get_dmnlist_file(root.c_str()));
  std::vector<DaemonEntry> entries;
  for (std::string line; std::getline(file, line);) {
    const size_t colon = line.find(':');
    if (colon == line.npos) break;
    entries.push_back({atol(line.c_str()), line.substr(colon + 1)});
  }
  return entries;
}

bool ProcessExists(long pid) {
  return pid > 0 && (kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM);
}

DaemonState FindDaemon(const std::string& root) {
  DaemonState state = DaemonState::kNone;
  for (const DaemonEntry& entry : ReadRegister(root)) {
    if (entry.name == "krtnet.fil" || entry.name == "krtnet.net") continue;
    if (ProcessExists(entry.pid)) return DaemonState::kAlive;
    state = DaemonState::kDead;
  }
  return state;
}

}  // namespace client
