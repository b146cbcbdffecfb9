// Commands to the fax scheduler.
//
// One record, 68 bytes, numbers in the byte order of the host:
//
//     offset  size  content
//          0     2  command code, unsigned
//          2     6  zero
//          8     4  sequence number of the request, signed
//         12    56  zero
//
// - A record is one write into the fifo FIFO of the root directory.
// - Limits: that the scheduler has read a record is not known here.
#ifndef FAXSERVER_FSCOM_H_
#define FAXSERVER_FSCOM_H_

#include <array>
#include <cstddef>
#include <cstdint>

enum fx_sched_code : uint16_t {
  kFxSchedCancel = 7,  // cancel the request
  kFxSchedTry = 12,    // try the request now
};

constexpr size_t kFxSchedRecordSize = 68;
using fx_sched_record = std::array<unsigned char, kFxSchedRecordSize>;

fx_sched_record fx_encode_sched(uint16_t code, int32_t seqno);
uint16_t fx_sched_record_code(const fx_sched_record& record);
int32_t fx_sched_record_seqno(const fx_sched_record& record);

// Writes a record to the scheduler, waiting at most kFxFifoSeconds for it to
// read. 0 and kx_errno 0, or -1 with kx_err_system and errno.
int fx_send_cmd(const char* kfaxdir, const fx_sched_record& record);

#endif  // FAXSERVER_FSCOM_H_
