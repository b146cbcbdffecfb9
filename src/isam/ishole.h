// Which of the equal pieces of a file (slots, pages) hold anything.
//
// - What a file claims costs its owner nothing: it may be a hole of any size.
//   Work that goes over all pieces goes by this, and so is bounded by what the
//   file takes of the disk.
// - A piece that lies in a hole all over is zeros: no slot and no page.
// - On a file system that cannot tell, all of a file is data.
#ifndef ISAM_ISHOLE_H_
#define ISAM_ISHOLE_H_

#include <sys/types.h>

#include <cstdint>

#include "isam/iscode.h"

namespace isam {

class Filled {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;

  // Piece n, counted from 1, begins at `start` + (n - 1) * `size`.
  Filled(int fd, off_t start, off_t size)
      : fd_(fd), start_(start), size_(size) {}

  // The first piece from `number` on that has any data; kNone behind the last.
  [[nodiscard]] isam_code From(uint32_t number, uint32_t* found);
  // Whether all pieces up to `count` have.
  [[nodiscard]] isam_code UpTo(uint32_t count, bool* all);

 private:
  isam_code Seek(off_t at);

  const int fd_;
  const off_t start_, size_;
  off_t data_ = 0, hole_ = 0;  // the stretch of data found last
};

}  // namespace isam

#endif  // ISAM_ISHOLE_H_
