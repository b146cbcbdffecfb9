// Who runs and listens: the daemon, the scheduler, and the readers of the
// fifos.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cm/cmdaemon.h"
#include "cm/cmpaths.h"
#include "ctl/check/check.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fsshm.h"
#include "kx/object.h"
#include "link/daemons.h"
#include "util/kutio.h"
#include "util/kutproc.h"
#include "util/kuttime.h"

namespace client {
namespace {

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
  // The real thing, with an answer: a process that exists may hang, or watch
  // another directory.
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
  // By what was looked at; without waiting, it fails with ENXIO where nobody
  // reads.
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

}  // namespace

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
  // Session daemons are optional: nobody is missed who never registered.
  if (IsRegistered(root, kCmFileDaemon)) {
    CheckFifo(findings, std::string(cm_get_filspool_dir(root)) + "/efifo",
              false, kCmFileDaemon);
  }
  if (IsRegistered(root, kCmNetDaemon)) {
    CheckFifo(findings, std::string(cm_get_netspool_dir(root)) + "/efifo",
              false, kCmNetDaemon);
  }
}

}  // namespace client
