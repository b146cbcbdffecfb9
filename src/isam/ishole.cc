#include "isam/ishole.h"

#include <unistd.h>

#include <cerrno>
#include <limits>

#include "isam/issys.h"

namespace isam {
namespace {

constexpr off_t kEnd = std::numeric_limits<off_t>::max();

}  // namespace

// The stretch of data at or after `at`; at the end of all numbers if there is
// none.
isam_code Filled::Seek(off_t at) {
  hole_ = kEnd;
  data_ = g_sys.seek(fd_, at, SEEK_DATA);
  if (data_ < 0) {
    data_ = errno == EINVAL ? at : kEnd;
    return errno == EINVAL || errno == ENXIO ? kIsamOk : kIsamIo;
  }
  hole_ = g_sys.seek(fd_, data_, SEEK_HOLE);
  return hole_ < 0 ? kIsamIo : kIsamOk;
}

isam_code Filled::From(uint32_t number, uint32_t* found) {
  const off_t begin = start_ + (off_t{number} - 1) * size_;
  if (begin < data_ || begin >= hole_) {
    if (isam_code code = Seek(begin)) return code;
  }
  const off_t piece = (data_ - start_) / size_ + 1;
  *found = data_ <= begin   ? number
           : piece >= kNone ? kNone
                            : static_cast<uint32_t>(piece);
  return kIsamOk;
}

isam_code Filled::UpTo(uint32_t count, bool* all) {
  *all = true;
  for (uint32_t n = 0; *all && n < count;) {
    uint32_t found;
    if (isam_code code = From(++n, &found)) return code;
    *all = found == n;
  }
  return kIsamOk;
}

}  // namespace isam
