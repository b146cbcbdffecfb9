// The status of the devices: the file dstat, records of 472 bytes, numbers
// signed and in the byte order of the host, texts ended by a NUL:
//
//     offset  size  content                                 field
//          0    28  destination                             destname
//         28     4  enabled or not since, seconds           esince
//         32     4  receiving or not since, seconds         rsince
//         36     4  unused
//         40     2  whether it receives                     recving
//         42     2  its number in the status memory         (devstate)
//         44     2  whether it is enabled                   enabled
//         46    65  why enabled or not                      ereason
//        111    65  why receiving or not                    rreason
//        176   129  line                                    device
//        305    81  name of the modem's interface           fim
//        386    86  program for received faxes              rnp
//
// - A text that is too long for its field leaves it unset. `devstate` is unset
//   without a status memory that has the device.
#ifndef FAXSERVER_FSDSTAT_H_
#define FAXSERVER_FSDSTAT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "kx/kfx.h"

constexpr size_t kFxDstatSize = 472;
using fx_dstat_bytes = std::array<unsigned char, kFxDstatSize>;

struct fx_dstat_record {
  std::string destname;
  int32_t esince = 0;
  int32_t rsince = 0;
  int16_t recving = 0;
  int16_t devno = 0;
  int16_t enabled = 0;
  std::string ereason;
  std::string rreason;
  std::string device;
  std::string fim;
  std::string rnp;
};

fx_dstat_bytes fx_encode_dstat(const fx_dstat_record& record);
fx_dstat_record fx_decode_dstat(const fx_dstat_bytes& bytes);

// An "obj-device" for each whole record, in file order; the caller frees the
// list. The status memory is detached afterwards. Null: kx_err_system without a
// file.
kx_object* fx_rd_dstat(const char* root);

#endif  // FAXSERVER_FSDSTAT_H_
