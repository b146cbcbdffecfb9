// The shared memory in which the scheduler tells that it runs and what its
// devices do.
//
// The segment has the key "krt*" (kFxShmKey), and 168 + 48 n bytes for n
// modems; numbers have 32 bits, signed, in the byte order of the host:
//
//      offset  size  content
//           0     4  magic 0xA0B0C0D0
//           4     4  n
//           8     4  process id of the scheduler
//          12     4  jobs in the queue
//          16   136  text of the creator, ended by a NUL
//         152  48 n  a record for each device, by device number
//    152+48 n    16  unused
//
// In a device's record the number at offset 8 is its state (cm/cmstatus.h).
//
// - A process has at most one segment attached. Pointers into it are good until
//   fx_shm_detach, and fx_is_sched_running when the scheduler is gone.
// - What the header says is checked against the size that the segment has:
//   nothing is read behind its end.
// - Nothing is locked. A reader may see a state that is a moment old.
// - Failure is -1 or null with the error number, success 0.
#ifndef FAXSERVER_FSSHM_H_
#define FAXSERVER_FSSHM_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

constexpr key_t kFxShmKey = 0x6B72742A;  // "krt*"
constexpr uint32_t kFxShmMagic = 0xA0B0C0D0;
constexpr size_t kFxShmDeviceSize = 48;
constexpr size_t kFxShmDevicesAt = 152;
constexpr size_t kFxShmStateAt = 8;  // in a device's record

// Attaches the segment, unless it is, to read or (`writable` not 0) to write,
// and gives the first device's record. Null: kx_err_system without a segment;
// kx_err_data for a wrong magic (the segment stays attached, and the magic is
// not checked again) and for one too small to have a header (it does not). On a
// system without shared memory the process ends with status 1.
unsigned char* fx_get_stat_shm(const char* root, int writable);
// Whether the segment is valid and names a process that exists. When not, it
// is detached. An attached segment that is no longer the system's is replaced.
bool fx_is_sched_running(const char* root);
// The number of modems whose records lie in the segment. -1 with kx_err_system
// or kx_err_data.
int fx_get_num_modems(const char* root);
// The number of jobs; -1 with kx_err_no_scheduler when the scheduler does not
// run.
int fx_get_jobs_in_queue(const char* root);
// The state number of a device; -1 with kx_err_system or kx_err_data without a
// segment, with kx_err_index for a device that it does not have.
int fx_get_device_state(const char* root, int device);
// Detaches what is attached. 0, or what the system says.
int fx_shm_detach();

// The scheduler's side. The segment must be attached for writing.
//
// Makes a new segment, in place of an old one, and attaches it: mode 0664, this
// process its scheduler, no jobs, all states 0. A longer text is cut. 0, or -1
// with kx_err_system.
int fx_creat_stat_shm(const char* text, int modems);
// Remove the segment: 0, or -1 with kx_err_system when there is none.
int fx_rm_stat_shm(const char* root);
// 0, or -1: kx_err_system when none is attached for writing, kx_err_index for
// another device.
int fx_set_jobs_in_queue(int count);
int fx_set_device_state(int device, int state);

#endif  // FAXSERVER_FSSHM_H_
