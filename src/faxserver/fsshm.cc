#include "faxserver/fsshm.h"

#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "faxserver/fsbase.h"
#include "faxserver/fsbytes.h"
#include "util/kutproc.h"

namespace {

constexpr size_t kMagicAt = 0;
constexpr size_t kModemsAt = 4;
constexpr size_t kPidAt = 8;
constexpr size_t kJobsAt = 12;
constexpr size_t kTextAt = 16, kTextSize = 136;
constexpr size_t kTailSize = 16;

// The attached segment; `base` is null while detached.
struct Segment {
  unsigned char* base;
  size_t size;
  int id;
  bool writable;
};

constinit Segment g_segment = {};

fx_out_bytes Bytes() { return {g_segment.base, g_segment.size}; }

constexpr size_t SegmentSize(size_t modems) {
  return kFxShmDevicesAt + modems * kFxShmDeviceSize + kTailSize;
}

// Runs when the system has no shared memory.
void CatchSigsys(int) {
  static constexpr char kText[] = "caught SIGSYS: is shared mem installed?\n";
  static_cast<void>(!write(STDERR_FILENO, kText, sizeof kText - 1));
  _exit(1);
}

int FindSegment() {
  struct sigaction catcher = {};
  struct sigaction old;
  catcher.sa_handler = CatchSigsys;
  sigaction(SIGSYS, &catcher, &old);
  const int id = shmget(kFxShmKey, 0, 0);
  const int saved = errno;
  sigaction(SIGSYS, &old, nullptr);
  errno = saved;
  return id;
}

// Attaches a segment and learns how large it really is. False with errno.
bool Attach(int id, bool writable) {
  shmid_ds status;
  if (id < 0 || shmctl(id, IPC_STAT, &status) != 0) return false;
  void* base = shmat(id, nullptr, writable ? 0 : SHM_RDONLY);
  if (base == reinterpret_cast<void*>(-1)) return false;
  g_segment = {static_cast<unsigned char*>(base), status.shm_segsz, id,
               writable};
  return true;
}

bool HasMagic() { return fx_get<uint32_t>(Bytes(), kMagicAt) == kFxShmMagic; }

// How many device records there are: what the header says, as far as the
// segment goes.
int CountDevices() {
  const int64_t said = fx_get<int32_t>(Bytes(), kModemsAt);
  const int64_t room = (static_cast<int64_t>(g_segment.size) -
                        static_cast<int64_t>(SegmentSize(0))) /
                       static_cast<int64_t>(kFxShmDeviceSize);
  return static_cast<int>(
      std::clamp<int64_t>(said, 0, std::max<int64_t>(room, 0)));
}

// Drops an attachment to a segment that was removed: its scheduler may be gone,
// or have made another.
void DetachIfReplaced() {
  if (g_segment.base != nullptr && FindSegment() != g_segment.id) {
    fx_shm_detach();
  }
}

size_t DeviceAt(int device) {
  return kFxShmDevicesAt + static_cast<size_t>(device) * kFxShmDeviceSize;
}

}  // namespace

unsigned char* fx_get_stat_shm(const char*, int writable) {
  if (g_segment.base == nullptr) {
    if (!Attach(FindSegment(), writable != 0)) return fx_null(kx_err_system);
    if (g_segment.size < SegmentSize(0)) {
      fx_shm_detach();
      return fx_null(kx_err_data);
    }
    if (!HasMagic()) return fx_null(kx_err_data);
  }
  kx_errno = kx_err_none;
  return g_segment.base + kFxShmDevicesAt;
}

bool fx_is_sched_running(const char* root) {
  DetachIfReplaced();
  fx_get_stat_shm(root, 0);
  if (g_segment.base == nullptr) return false;
  if (HasMagic() && Kut_process_exists(fx_get<int32_t>(Bytes(), kPidAt))) {
    return true;
  }
  fx_shm_detach();
  return false;
}

int fx_get_num_modems(const char* root) {
  return fx_get_stat_shm(root, 0) != nullptr ? CountDevices() : -1;
}

int fx_get_jobs_in_queue(const char* root) {
  if (!fx_is_sched_running(root)) return fx_fail(kx_err_no_scheduler);
  kx_errno = kx_err_none;
  return fx_get<int32_t>(Bytes(), kJobsAt);
}

int fx_get_device_state(const char* root, int device) {
  if (fx_get_stat_shm(root, 0) == nullptr) return -1;
  if (device < 0 || device >= CountDevices()) return fx_fail(kx_err_index);
  return fx_get<int32_t>(Bytes(), DeviceAt(device) + kFxShmStateAt);
}

int fx_shm_detach() {
  if (g_segment.base == nullptr) return 0;
  const int result = shmdt(g_segment.base);
  g_segment = {};
  return result;
}

int fx_creat_stat_shm(const char* text, int modems) {
  if (modems < 0) return fx_fail(kx_err_data);
  fx_shm_detach();
  const int old = FindSegment();
  if (old >= 0) shmctl(old, IPC_RMID, nullptr);
  const int id = shmget(kFxShmKey, SegmentSize(static_cast<size_t>(modems)),
                        IPC_CREAT | IPC_EXCL | 0664);
  if (!Attach(id, true)) return fx_fail(kx_err_system);
  fx_put(Bytes(), kModemsAt, static_cast<int32_t>(modems));
  fx_put(Bytes(), kPidAt, static_cast<int32_t>(getpid()));
  fx_put(Bytes(), kJobsAt, int32_t{0});
  fx_put_text(Bytes(), kTextAt, kTextSize, text != nullptr ? text : "");
  // Last: a reader that sees the magic sees all of the header.
  fx_put(Bytes(), kMagicAt, kFxShmMagic);
  return fx_ok();
}

int fx_rm_stat_shm(const char*) {
  fx_shm_detach();
  const int id = FindSegment();
  const bool removed = id >= 0 && shmctl(id, IPC_RMID, nullptr) == 0;
  return removed ? fx_ok() : fx_fail(kx_err_system);
}

int fx_set_jobs_in_queue(int count) {
  if (!g_segment.writable) return fx_fail(kx_err_system);
  fx_put(Bytes(), kJobsAt, static_cast<int32_t>(count));
  return fx_ok();
}

int fx_set_device_state(int device, int state) {
  if (!g_segment.writable) return fx_fail(kx_err_system);
  if (device < 0 || device >= CountDevices()) return fx_fail(kx_err_index);
  fx_put(Bytes(), DeviceAt(device) + kFxShmStateAt,
         static_cast<int32_t>(state));
  return fx_ok();
}
