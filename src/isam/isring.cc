#include "isam/isring.h"

#include <cstring>

#include "isam/isbytes.h"
#include "isam/issys.h"

namespace isam {
namespace {

constexpr char kEntryMagic[] = "KRTREDO1";

struct Found {
  uint32_t offset, length;
  uint64_t base;
};
using Entries = std::map<uint64_t, Found>;  // by commit number

// Calls `use(kind, number, image)` for each image; false when one is
// impossible.
template <typename Use>
bool ForEachImage(const uint8_t* entry, const Layout& layout, Use use) {
  const uint32_t length = Get32(entry + entry_at::kLength);
  uint32_t at = kEntryHeader;
  for (uint32_t left = Get32(entry + entry_at::kImageCount); left > 0; --left) {
    if (length - at < kImageHeader) return false;
    const auto kind =
        static_cast<ImageKind>(Get32(entry + at + image_at::kKind));
    const uint32_t number = Get32(entry + at + image_at::kNumber);
    const Image image = {entry + at + image_at::kBytes,
                         Get32(entry + at + image_at::kLength)};
    at += kImageHeader;
    if (image.length > length - at) return false;
    at += image.length;
    const bool possible =
        kind == ImageKind::kRoot   ? image.length == kRootSize && number == 0
        : kind == ImageKind::kPage ? number != 0 && image.length <= kPageSize &&
                                         image.length >= kPageHeader
        : kind == ImageKind::kSlot
            ? number != 0 && image.length == layout.slot_size()
            : false;
    if (!possible) return false;
    use(kind, number, image);
  }
  return true;
}

bool MayBeEntry(const std::vector<uint8_t>& ring, uint32_t offset,
                const Layout& layout, uint64_t limit) {
  const uint8_t* p = ring.data() + offset;
  if (ring.size() - offset < kEntryHeader ||
      memcmp(p + entry_at::kMagic, kEntryMagic, kMagicSize) != 0)
    return false;
  const uint32_t length = Get32(p + entry_at::kLength);
  const uint64_t commit = Get64(p + entry_at::kCommit);
  return Get64(p + entry_at::kSalt) == layout.salt && commit > 0 &&
         commit <= limit && length >= kEntryHeader &&
         length <= ring.size() - offset;
}

uint64_t EntrySum(const uint8_t* entry, uint64_t salt) {
  return Checksum(entry + entry_at::kSalt,
                  Get32(entry + entry_at::kLength) - entry_at::kSalt, salt);
}

bool IsWhole(const uint8_t* entry, const Layout& layout) {
  return Get64(entry + entry_at::kChecksum) == EntrySum(entry, layout.salt) &&
         ForEachImage(entry, layout, [](ImageKind, uint32_t, const Image&) {});
}

// All valid entries by commit number. A process that died after the flush of
// entry n+1 leaves it behind at one of its two possible places. The next n+1
// may come to stand at the other, and then it is the one further back that
// counts: an entry that goes to the start voids what stood at the end.
//
// Entries do not overlap, but for what is left of one that was half
// overwritten. A ring full of headers that each claim all the rest is nobody's,
// and would take the square of its size. False for that.
bool FindEntries(const std::vector<uint8_t>& ring, const Layout& layout,
                 uint64_t limit, Entries* found) {
  size_t claimed = 0;
  for (uint32_t at = 0; at < ring.size(); at += kSector) {
    if (!MayBeEntry(ring, at, layout, limit)) continue;
    const uint8_t* p = ring.data() + at;
    const uint32_t length = Get32(p + entry_at::kLength);
    claimed += length;
    if (claimed > 4 * ring.size()) return false;
    if (IsWhole(p, layout))
      (*found)[Get64(p + entry_at::kCommit)] = {at, length,
                                                Get64(p + entry_at::kBase)};
  }
  return true;
}

}  // namespace

Entry::Entry(const Layout& layout, uint64_t commit)
    : salt_(layout.salt), bytes_(kEntryHeader) {
  memcpy(bytes_.data() + entry_at::kMagic, kEntryMagic, kMagicSize);
  Put64(bytes_.data() + entry_at::kSalt, salt_);
  Put64(bytes_.data() + entry_at::kCommit, commit);
}

void Entry::Add(ImageKind kind, uint32_t number, const uint8_t* bytes,
                uint32_t length) {
  uint8_t header[kImageHeader];
  Put32(header + image_at::kKind, static_cast<uint32_t>(kind));
  Put32(header + image_at::kNumber, number);
  Put32(header + image_at::kLength, length);
  bytes_.insert(bytes_.end(), header, header + sizeof header);
  bytes_.insert(bytes_.end(), bytes, bytes + length);
  ++images_;
}

void Entry::Seal(uint64_t base) {
  const uint32_t length = size();
  bytes_.resize(sealed_size());
  uint8_t* p = bytes_.data();
  Put64(p + entry_at::kBase, base);
  Put32(p + entry_at::kLength, length);
  Put32(p + entry_at::kImageCount, images_);
  Put64(p + entry_at::kChecksum, EntrySum(p, salt_));
}

isam_code Overlay::Load(int fd, const Layout& layout, uint64_t last,
                        bool exactly, std::unique_ptr<Overlay>* out) {
  auto overlay = std::make_unique<Overlay>();
  overlay->ring_.resize(layout.ring_size);
  if (isam_code code =
          ReadAt(fd, overlay->ring_.data(), layout.ring_size, kRingOffset))
    return code;
  Entries found;
  if (!FindEntries(overlay->ring_, layout, exactly ? last : UINT64_MAX, &found))
    return kIsamDamaged;
  if (!found.empty()) {
    const auto& [commit, entry] = *found.rbegin();
    overlay->commit_ = commit;
    overlay->base_ = entry.base;
    overlay->entry_offset_ = entry.offset;
    overlay->entry_length_ = entry.length;
  }
  if (overlay->commit_ < last) return kIsamDamaged;
  uint64_t next = overlay->commit_;  // the one that the run has to go on with
  for (auto it = found.rbegin(); it != found.rend() && it->first == next;
       ++it, --next) {
    // From the newest to the oldest: what is there already is newer.
    ForEachImage(overlay->ring_.data() + it->second.offset, layout,
                 [&](ImageKind kind, uint32_t number, const Image& image) {
                   overlay->images_.try_emplace({kind, number}, image);
                 });
  }
  // With a gap among the entries that are needed the files cannot be repaired.
  if (!found.empty() && next >= overlay->base_) return kIsamDamaged;
  *out = std::move(overlay);
  return kIsamOk;
}

const Image* Overlay::Find(ImageKind kind, uint32_t number) const {
  const auto it = images_.find({kind, number});
  return it == images_.end() ? nullptr : &it->second;
}

}  // namespace isam
