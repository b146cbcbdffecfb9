// What runs, and what lies about in the spool.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "cm/cmdaemon.h"
#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "ctl/check/check.h"
#include "ctl/format/format.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fsfolder.h"
#include "faxserver/fspopen.h"
#include "faxserver/fsshm.h"
#include "kx/object.h"
#include "link/daemons.h"
#include "util/kutfile.h"
#include "util/kutident.h"
#include "util/kutio.h"
#include "util/kutproc.h"
#include "util/kuttime.h"

namespace client {
namespace {

constexpr time_t kOldAfter = 3600;      // seconds, for what is in the spool
constexpr time_t kAbandonedAfter = 60;  // seconds; a claim is read at once

time_t AgeOf(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? time(nullptr) - st.st_mtime : 0;
}

// How long ago a command was claimed: the rename set the time of its status.
// The time of its content is the client's.
time_t SinceClaim(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? time(nullptr) - st.st_ctime : 0;
}

void CheckRegister(Findings* findings) {
  std::string dead;
  for (const cm_daemon& entry : ReadRegister(findings->root())) {
    if (Kut_process_exists(entry.pid)) continue;
    dead += " " + std::to_string(entry.pid) + ":" + entry.name;
  }
  if (dead.empty()) return findings->Ok("register of daemons");
  const std::string what = "register of daemons: dead entries" + dead;
  // No daemon has the empty name: only the dead ones go.
  if (findings->Repairs() && fx_upd_daemon_list(findings->root(), "") == 0) {
    return findings->Ok(what + ": removed");
  }
  findings->Warn(what, "krtctl check --fix");
}

void CheckPing(Findings* findings) {
  App& app = findings->app();
  if (!app.Connect()) return;
  kx::Object cmd = app.link().Command("cmd-noop", nullptr);
  kx::Object answer;
  const long start = Kut_now_ms();
  Status s = app.link().Call(cmd.get(), nullptr, &answer);
  if (s.ok()) {
    return findings->Ok("the daemon answers (" +
                        std::to_string(Kut_now_ms() - start) + " ms)");
  }
  // In a directory that others can write, root's commands are refused.
  if (kx::Number(answer.get(), "result") == kx_err_permission) {
    return findings->Ok("the daemon answers, but " + UserName(geteuid()) +
                        " is refused there");
  }
  findings->Fail("the daemon does not answer: " + s.text,
                 "look into its log (journalctl -u krtcmd)");
}

// Whether somebody reads a fifo: opening it to write succeeds at once.
void CheckFifo(Findings* findings, const std::string& path, bool needed,
               const char* reader) {
  // Looked at before it is opened: opening a device may do something.
  struct stat st;
  const UniqueFd found(Kut_open(path.c_str(), O_PATH));
  int error = errno;
  const bool fifo =
      found.valid() && fstat(found.get(), &st) == 0 && S_ISFIFO(st.st_mode);
  const std::string reopen = "/proc/self/fd/" + std::to_string(found.get());
  UniqueFd fd;
  if (found.valid()) error = 0;
  if (fifo) fd.reset(Kut_open(reopen.c_str(), O_WRONLY | O_NONBLOCK));
  if (fifo) error = errno;
  if (fd.valid()) return findings->Ok(path + " has a reader");
  std::string what = path + ": ";
  what += error == ENXIO                                ? "nobody reads it"
          : !fifo && error != ENOENT && error != EACCES ? "is no fifo"
                                                        : strerror(error);
  const std::string fix = std::string("start ") + reader;
  needed ? findings->Fail(what, fix) : findings->Warn(what, fix);
}

bool IsRegistered(const char* root, const char* name) {
  for (const cm_daemon& entry : ReadRegister(root)) {
    if (entry.name == name && Kut_process_exists(entry.pid)) return true;
  }
  return false;
}

bool IsNumber(const std::string& text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(),
                     [](unsigned char c) { return isdigit(c) != 0; });
}

// A folder of the fax system's, in which root repairs as its owner: links that
// others could have put there lead nowhere that those could not go.
cm_folder FolderAt(const Findings& findings, const std::string& path) {
  if (cm_is_in_tree(findings.root(), path.c_str())) {
    return cm_open_folder(findings.root(), path.c_str());
  }
  UniqueFd fd(Kut_open(path.c_str(), O_PATH | O_DIRECTORY));
  kut_fsid owner;
  if (!fd.valid() || !Kut_owner_of(fd.get(), &owner)) return cm_folder();
  return cm_folder(std::move(fd), owner);
}

void CheckClaim(Findings* findings, const std::string& name, long pid) {
  const std::string& spool = findings->place().spool;
  const std::string path = spool + "/" + name;
  if (!IsAbandonedClaim(pid, SinceClaim(path))) return;
  const std::string base = name.substr(0, name.rfind('.'));
  const std::string what = "abandoned command " + name;
  // Whoever removes a claim may carry it out: this one was not. A worker that
  // has just read it finds it gone and leaves it alone.
  if (findings->Repairs("Put " + name + " back to be carried out?")) {
    const cm_folder folder = FolderAt(*findings, spool);
    const FileIdentity owner = folder.Enter();
    if (folder.valid() && owner.held() &&
        Kut_rename_fresh(folder.fd(), name.c_str(), (base + ".cmd").c_str()) ==
            0) {
      return findings->Ok(what + ": put back");
    }
    return findings->Fail(what + ": " + strerror(errno), "look as root");
  }
  findings->Warn(what, "krtctl check --fix, or remove it");
}

// Nobody believes an answer that is somebody else's.
std::string AsOwner(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0 || st.st_uid == geteuid() ||
      cm_is_krt_admin(static_cast<int>(st.st_uid))) {
    return "";
  }
  return ", as " + UserName(st.st_uid);
}

void CheckOld(Findings* findings, const std::string& name,
              const std::string& ext) {
  const std::string path = findings->place().spool + "/" + name;
  const time_t age = AgeOf(path);
  if (age < kOldAfter) return;
  const std::string base = name.substr(0, name.rfind('.'));
  const std::string what = name + " is " + Span(age) + " old";
  if (ext == "rsp") {
    return findings->Warn(
        what, "krtctl collect " + fx_shell_word(base.c_str()) + AsOwner(path));
  }
  if (ext == "cmd") {
    return findings->Warn(what, "see whether the daemon runs: krtctl ping");
  }
  findings->Warn(what, "rm " + fx_shell_word(path.c_str()));
}

}  // namespace

std::vector<std::string> NamesIn(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool IsAbandonedClaim(long pid, time_t since) {
  return !Kut_process_exists(static_cast<pid_t>(pid)) ||
         since >= kAbandonedAfter;
}

void CheckDaemon(Findings* findings) {
  CheckRegister(findings);
  switch (FindDaemon(findings->place().root)) {
    case DaemonState::kAlive:
      findings->Ok("the daemon is registered and alive");
      return CheckPing(findings);
    case DaemonState::kDead:
      return findings->Fail("no registered daemon is alive",
                            "systemctl start krtcmd");
    case DaemonState::kNone:
      return findings->Fail("no daemon is registered",
                            "systemctl start krtcmd");
  }
}

void CheckScheduler(Findings* findings) {
  const bool running = fx_is_sched_running(findings->root());
  const int modems = fx_get_num_modems(findings->root());
  const int error = Kfx_Errno();
  fx_shm_detach();
  if (running) {
    return findings->Ok("the scheduler runs, " + std::to_string(modems) +
                        " modems");
  }
  findings->Fail(modems >= 0 ? "the scheduler's process is gone"
                 : error == kx_err_data
                     ? "the status segment is not the scheduler's"
                     : "there is no status segment: the scheduler does not run",
                 "start the fax scheduler");
}

void CheckFifos(Findings* findings) {
  const char* root = findings->root();
  CheckFifo(findings, cm_get_fifo_file(root), true, "the fax scheduler");
  CheckFifo(findings, findings->place().spool + "/kfifo", true,
            "the queueing side");
  if (IsRegistered(root, kCmFileDaemon)) {
    CheckFifo(findings, std::string(cm_get_filspool_dir(root)) + "/efifo",
              false, kCmFileDaemon);
  }
  if (IsRegistered(root, kCmNetDaemon)) {
    CheckFifo(findings, std::string(cm_get_netspool_dir(root)) + "/efifo",
              false, kCmNetDaemon);
  }
}

void CheckSpoolFiles(Findings* findings) {
  for (const std::string& name : NamesIn(findings->place().spool)) {
    const size_t dot = name.rfind('.');
    const std::string ext = dot == name.npos ? "" : name.substr(dot + 1);
    if (IsNumber(ext)) {
      CheckClaim(findings, name, strtol(ext.c_str(), nullptr, 10));
    } else if (!ext.empty()) {
      CheckOld(findings, name, ext);
    }
  }
}

void CheckSlots(Findings* findings) {
  const Place& place = findings->place();
  int stale = 0;
  const cm_folder folder = FolderAt(*findings, place.sessions);
  const FileIdentity owner = folder.Enter();
  for (const std::string& name : NamesIn(place.sessions)) {
    if (SlotOfFile(name) < 0) continue;
    if (findings->Repairs()) {
      RetireSlot(place, name);
    } else {
      Slot slot;
      stale += slot.TryReserve(place, name) ? 1 : 0;
    }
  }
  if (stale == 0) return findings->Ok("session numbers");
  findings->Warn(std::to_string(stale) + " session numbers are left over",
                 "krtctl check --fix");
}

}  // namespace client
