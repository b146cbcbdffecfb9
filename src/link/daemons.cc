#include "link/daemons.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <memory>
#include <sstream>

#include "cm/cmpaths.h"
#include "util/kutproc.h"

namespace client {
namespace {

// Of clocks and of time stamps, in seconds.
constexpr double kSlack = 1;

double Seconds(const timespec& t) {
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

double Now(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return Seconds(now);
}

// The effective id of a process in the "Uid:" or "Gid:" line of its status; -1
// when it is gone or cannot be seen.
long IdOf(const std::string& proc, const std::string& head) {
  std::ifstream file(proc + "/status");
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(head)) continue;
    std::istringstream ids(line.substr(head.size()));
    long real = -1;
    long effective = -1;
    ids >> real >> effective;
    return effective;
  }
  return -1;
}

// When a process began, in seconds of the wall clock; -1 if unknown.
double BeginOf(const std::string& proc) {
  constexpr int kAfterName = 20;  // fields from the name's ")" to the beginning
  std::ifstream file(proc + "/stat");
  std::string text;
  std::getline(file, text, '\0');
  std::istringstream fields(text.substr(text.rfind(')') + 1));
  std::string field;
  for (int i = 0; i < kAfterName; ++i) fields >> field;
  if (!fields) return -1;
  const double ticks = strtod(field.c_str(), nullptr);
  const double up = ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
  return Now(CLOCK_REALTIME) - Now(CLOCK_BOOTTIME) + up;
}

bool IsOpenToAll(const std::string& path, struct stat* st) {
  return stat(path.c_str(), st) != 0 || (st->st_mode & S_IWOTH) != 0;
}

// Whether the daemon that was registered last runs with that id.
bool DaemonHas(const std::string& root, const char* line, unsigned id) {
  struct stat folder;
  struct stat list;
  if (IsOpenToAll(cm_get_krtnet_dir(root.c_str()), &folder) ||
      IsOpenToAll(cm_get_dmnlist_file(root.c_str()), &list)) {
    return false;
  }
  // The last one alone: an earlier line may be of a process that is gone, and
  // its number anybody's by now.
  std::vector<cm_daemon> entries = ReadRegister(root);
  std::erase_if(entries,
                [](const cm_daemon& entry) { return entry.serves_sessions(); });
  if (entries.empty()) return false;
  const std::string proc = "/proc/" + std::to_string(entries.back().pid);
  const double begin = BeginOf(proc);
  return IdOf(proc, line) == static_cast<long>(id) && begin >= 0 &&
         begin <= Seconds(list.st_mtim) + kSlack;
}

}  // namespace

std::vector<cm_daemon> ReadRegister(const std::string& root) {
  std::vector<cm_daemon> entries;
  const std::unique_ptr<FILE, int (*)(FILE*)> list(
      fopen(cm_get_dmnlist_file(root.c_str()), "re"), fclose);
  // Of one that cannot be read to its end the beginning counts.
  if (list != nullptr) static_cast<void>(cm_read_daemons(list.get(), &entries));
  return entries;
}

DaemonState FindDaemon(const std::string& root) {
  DaemonState state = DaemonState::kNone;
  for (const cm_daemon& entry : ReadRegister(root)) {
    if (entry.serves_sessions()) continue;
    if (Kut_process_exists(entry.pid)) return DaemonState::kAlive;
    state = DaemonState::kDead;
  }
  return state;
}

bool IsDaemonsUser(const std::string& root, uid_t uid) {
  return DaemonHas(root, "Uid:", uid);
}

bool IsDaemonsGroup(const std::string& root, gid_t gid) {
  return DaemonHas(root, "Gid:", gid);
}

}  // namespace client
