// The header of a fax image file: 256 bytes, in the byte order of the machine
// that wrote it.
//
//     offset  size  content
//          0     4  magic 0x0F09C105
//          4     4  number
//          8    36  bytes
//         44   2*4  numbers
//         52     2  number of pages, signed
//         54   4*2  numbers
//         62     2  bytes
//         64     4  number
//         68     2  number
//         70     2  bytes
//         72   2*4  numbers
//         80     2  number
//         82   174  bytes
//
// - A header whose magic stands in the other byte order is valid; reading it
//   reverses every number, the magic among them, and leaves the bytes.
#ifndef FAXSERVER_FSHDR_H_
#define FAXSERVER_FSHDR_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>

constexpr size_t kFxFaxhdrSize = 256;
constexpr uint32_t kFxFaxhdrMagic = 0x0F09C105;

struct fx_faxhdr {
  unsigned char bytes[kFxFaxhdrSize];
};

// An empty header with magic and number of pages.
fx_faxhdr fx_make_faxhdr(int16_t pages);
// The number of pages of a header in the host's byte order.
int16_t fx_faxhdr_pages(const fx_faxhdr* header);
// Brings a header into the host's byte order. False when it is none.
bool fx_fix_faxhdr(fx_faxhdr* header);

// Reads a header, in the host's byte order then. 0 and kx_errno 0, or -1 with
// kx_err_io (short read) or kx_err_data (none).
int fx_rd_faxhdr(FILE* stream, fx_faxhdr* header);
// Writes a header as it is. 0 and kx_errno 0, or -1 with kx_err_io.
int fx_wr_faxhdr(FILE* stream, const fx_faxhdr* header);
// The number of pages of a fax file. -1 with kx_err_io when it cannot be read,
// kx_err_data when it is none.
int fx_num_pages(const char* path);

#endif  // FAXSERVER_FSHDR_H_
