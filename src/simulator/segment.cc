#include "simulator/segment.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include "faxserver/fsshm.h"
#include "util/kuterr.h"

namespace sim {
namespace {

constexpr char kText[] = "krtsim";

// The process that made the machine's present segment, or -1.
pid_t MakerOfSegment() {
  shmid_ds status;
  const int id = shmget(kFxShmKey, 0, 0);
  if (id < 0 || shmctl(id, IPC_STAT, &status) != 0) return -1;
  return status.shm_cpid;
}

}  // namespace

StatusSegment::~StatusSegment() {
  if (!made_) return;
  fx_shm_detach();
  // Another's may have taken its place meanwhile; removing goes by the key.
  if (MakerOfSegment() == getpid()) fx_rm_stat_shm("");
}

bool StatusSegment::Make(int devices, std::string* reason) {
  // Alive counts, not there: what a kill has left is nobody's.
  const bool taken = fx_is_sched_running("");
  fx_shm_detach();
  if (taken) {
    *reason = "a scheduler runs on this machine, its segment made by process " +
              std::to_string(MakerOfSegment());
    return false;
  }
  if (fx_creat_stat_shm(kText, devices) != 0) {
    *reason =
        std::string("cannot make the status segment: ") + Kut_sys_errstr();
    return false;
  }
  made_ = true;
  return true;
}

}  // namespace sim
