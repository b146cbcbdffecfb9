// The outgoing log: one record for each attempt at a request.
//
// A record is 168 bytes, numbers in the byte order of the host, texts ended by
// a NUL unless they fill their field:
//
//     offset  size  content
//          0     4  sequence number of the request
//          4     4  number of the attempt
//          8     4  start, seconds since 1970
//         12     4  end, seconds since 1970
//         16     2  pages sent
//         18     2  pages that the far side refused
//         20     2  result of the attempt (cm/cmresult.h)
//         22     2  result of the request
//         24    16  client id
//         40    24  called station's id
//         64    24  sending station's id
//         88    64  number dialled
//        152    16  queue
//
// - All numbers are signed. Records are appended, so a later record is a later
//   attempt. Bytes behind the last whole record are ignored.
// - A record's texts may hold any bytes.
#ifndef FAXSERVER_FSOLOG_H_
#define FAXSERVER_FSOLOG_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kx/kfx.h"

constexpr size_t kFxOlogRecordSize = 168;
using fx_olog_bytes = std::array<unsigned char, kFxOlogRecordSize>;

struct fx_olog_record {
  int32_t seqno = 0;
  int32_t attempt = 0;
  int32_t stime = 0;
  int32_t etime = 0;
  int16_t npages = 0;
  int16_t naks = 0;
  int16_t aresult = 0;
  int16_t rresult = 0;
  std::string clientid;
  std::string csi;
  std::string tsi;
  std::string dialed;
  std::string queue;
};

// A text that does not fit its field is cut.
fx_olog_bytes fx_encode_olog(const fx_olog_record& record);
fx_olog_record fx_decode_olog(const fx_olog_bytes& bytes);

// Appends a record with one write. 0 and kx_errno 0, or -1 with kx_err_system.
int fx_append_olog(const char* root, const fx_olog_record& record);

// The client's last `max` records of the request, in order of the attempts;
// what another client's of the same number say is not his to know. The log is
// read from its end backwards, no further than needed. Empty: kx_err_system
// when the log cannot be read, kx_err_data when it holds no such record or
// `max` is below 1.
std::vector<fx_olog_record> fx_read_olog_list(const char* root, long seqno,
                                              const char* clientid, int max);

// Puts what the record tells into an "obj-status": attempt, both results,
// pages, naks, both times, csi, tsi, dialed. A value that the object cannot
// hold is left unset. 0, or -1 with kx_err_object for another object.
int fx_merge_stat_olog(kx_object* status, const fx_olog_record& record);

#endif  // FAXSERVER_FSOLOG_H_
