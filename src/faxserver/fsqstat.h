// The status of the queues: the file qstat, records of 120 bytes, numbers
// signed and in the byte order of the host, texts ended by a NUL:
//
//     offset  size  content                                 field
//          0    28  queue                                   qname
//         28     2  whether it accepts requests             accepting
//         30     2  unused
//         32     4  since when, seconds since 1970          asince
//         36    68  why                                     areason
//        104     2  type: 0 device queue, 1 class queue     qtype
//        106    14  unused
//
// - A class queue's devices stand in Classes/<queue>, one a line.
// - A text that is too long for its field leaves it unset, as does an unknown
//   type.
// - The caller frees a returned list.
#ifndef FAXSERVER_FSQSTAT_H_
#define FAXSERVER_FSQSTAT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kx/kfx.h"

constexpr size_t kFxQstatSize = 120;
using fx_qstat_bytes = std::array<unsigned char, kFxQstatSize>;

struct fx_qstat_record {
  std::string qname;
  int16_t accepting = 0;
  int32_t asince = 0;
  std::string areason;
  int16_t qtype = 0;
};

fx_qstat_bytes fx_encode_qstat(const fx_qstat_record& record);
fx_qstat_record fx_decode_qstat(const fx_qstat_bytes& bytes);

// All whole records in file order. False when there is no such file, or it
// cannot be read.
bool fx_read_qstat(const char* root, std::vector<fx_qstat_record>* records);

// An "obj-queue" for each record, in file order. Null: kx_err_system without a
// file, or when it or that of a class cannot be read at present; kx_err_memory
// without memory.
kx_object* fx_rd_qstat(const char* root);

#endif  // FAXSERVER_FSQSTAT_H_
