#include "faxserver/fshdr.h"

#include <algorithm>

#include "faxserver/fsbase.h"
#include "faxserver/fsbytes.h"
#include "faxserver/fsfile.h"

namespace {

constexpr size_t kMagicAt = 0;
constexpr size_t kPagesAt = 52;

// Where the numbers stand; all else is bytes.
constexpr size_t kWide[] = {0, 4, 44, 48, 64, 72, 76};
constexpr size_t kNarrow[] = {52, 54, 56, 58, 60, 68, 80};

uint32_t Magic(const fx_faxhdr* header) {
  return fx_get<uint32_t>(header->bytes, kMagicAt);
}

void SwapNumbers(fx_faxhdr* header) {
  for (const size_t at : kWide) {
    std::reverse(header->bytes + at, header->bytes + at + 4);
  }
  for (const size_t at : kNarrow) {
    std::reverse(header->bytes + at, header->bytes + at + 2);
  }
}

}  // namespace

fx_faxhdr fx_make_faxhdr(int16_t pages) {
  fx_faxhdr header = {};
  fx_put(header.bytes, kMagicAt, kFxFaxhdrMagic);
  fx_put(header.bytes, kPagesAt, pages);
  return header;
}

int16_t fx_faxhdr_pages(const fx_faxhdr* header) {
  return fx_get<int16_t>(header->bytes, kPagesAt);
}

bool fx_fix_faxhdr(fx_faxhdr* header) {
  if (Magic(header) == kFxFaxhdrMagic) return true;
  if (Magic(header) != __builtin_bswap32(kFxFaxhdrMagic)) return false;
  SwapNumbers(header);
  return true;
}

int fx_rd_faxhdr(FILE* stream, fx_faxhdr* header) {
  if (fread(header->bytes, sizeof header->bytes, 1, stream) != 1) {
    return fx_fail(kx_err_io);
  }
  return fx_fix_faxhdr(header) ? fx_ok() : fx_fail(kx_err_data);
}

int fx_wr_faxhdr(FILE* stream, const fx_faxhdr* header) {
  const bool done = fwrite(header->bytes, sizeof header->bytes, 1, stream) == 1;
  return done ? fx_ok() : fx_fail(kx_err_io);
}

int fx_num_pages(const char* path) {
  const fx_stream stream = fx_open_stream(path);
  fx_faxhdr header;
  if (stream == nullptr) return fx_fail(kx_err_io);
  if (fx_rd_faxhdr(stream.get(), &header) != 0) return -1;
  return fx_faxhdr_pages(&header);
}
