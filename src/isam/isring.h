// The redo ring: the last commits, each as one entry that holds the new
// contents of everything it changed.
//
// - Entry n+1 follows entry n at the next multiple of kSector, or stands at 0
//   when it does not fit there. It never overwrites entry n.
// - Each says from which entry on they are needed to repair the files; those
//   before it are on disk in place. An entry is overwritten only when the last
//   one says so: while the overwriting one is half written, the last one is all
//   there is to go by.
#ifndef ISAM_ISRING_H_
#define ISAM_ISRING_H_

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "isam/isformat.h"

namespace isam {

struct Image {
  const uint8_t* bytes;
  uint32_t length;
};

// One entry under construction.
class Entry {
 public:
  Entry(const Layout& layout, uint64_t commit);
  void Add(ImageKind kind, uint32_t number, const uint8_t* bytes,
           uint32_t length);
  // Completes the entry, padded with zeros to whole sectors.
  void Seal(uint64_t base);

  const std::vector<uint8_t>& bytes() const { return bytes_; }
  uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }
  // What size() will be once sealed.
  uint32_t sealed_size() const {
    return (size() + kSector - 1) / kSector * kSector;
  }

 private:
  uint64_t salt_;
  uint32_t images_ = 0;
  std::vector<uint8_t> bytes_;
};

// The unbroken run of entries up to the last, seen as the newest content of
// each thing that they hold. Stands in for the files where these cannot be
// believed.
class Overlay {
 public:
  using Images = std::map<std::pair<ImageKind, uint32_t>, Image>;

  // Reads the ring. `last` is the commit up to which entries count; with
  // `exactly` the run must end there, else it must reach it and may go on.
  // kIsamDamaged when the ring does not hold what it must.
  [[nodiscard]] static isam_code Load(int fd, const Layout& layout,
                                      uint64_t last, bool exactly,
                                      std::unique_ptr<Overlay>* out);

  // Null when no entry holds it.
  const Image* Find(ImageKind kind, uint32_t number) const;
  const Images& images() const { return images_; }

  uint64_t commit() const { return commit_; }  // 0: no entry at all
  uint64_t base() const { return base_; }      // from which on they are needed
  uint32_t entry_offset() const { return entry_offset_; }
  uint32_t entry_length() const { return entry_length_; }

 private:
  std::vector<uint8_t> ring_;
  Images images_;
  uint64_t commit_ = 0, base_ = 1;
  uint32_t entry_offset_ = 0;
  uint32_t entry_length_ = 0;
};

}  // namespace isam

#endif  // ISAM_ISRING_H_
