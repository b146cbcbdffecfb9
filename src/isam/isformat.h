// The layout of the two files. All numbers are unsigned, least significant byte
// first; every block carries a checksum that is seeded with the salt of its
// table, so a block of another table, or of an earlier one, is not taken for
// one of this. docs/store.md has a worked example.
//
// Index file                        Data file
//      0  header            2048        0  header            2048
//   2048  state block        512     2048  field definitions 6144
//   2560  root page          512     8192  redo ring    ring_size
//   4096  page 1, page 2, ...           .  slot 1, slot 2, ...
//
// The header, state block and root page are neighbours so that one read opens a
// table. The ring is in the data file because each commit flushes the file that
// has it: a commit changes one slot but many pages, which can wait. Header and
// field definitions never change once a table exists.
//
// What stands where in each block is said once, by the offsets below, which are
// bytes from the block's first; behind each comes its size, where it is not 4,
// and its meaning. The bytes between are zeros.
#ifndef ISAM_ISFORMAT_H_
#define ISAM_ISFORMAT_H_

#include <sys/types.h>

#include <cstdint>

#include "isam/iscode.h"
#include "isam/istypes.h"

namespace isam {

constexpr uint32_t kPageSize = 2048;
constexpr uint32_t kMaxDepth = 8;  // levels of a tree
constexpr uint32_t kSector = 512;  // the disk tears no write below this

constexpr uint32_t kHeaderSize = 2048;
constexpr off_t kStateOffset = 2048;
constexpr uint32_t kStateSize = 64;
constexpr off_t kRootOffset = 2560;
constexpr uint32_t kRootSize = 192;
constexpr uint32_t kOpenSize = kRootOffset + kRootSize;  // what an open reads
constexpr off_t kPagesOffset = 4096;
constexpr off_t kFieldsOffset = 2048;
constexpr uint32_t kFieldsSize = 6144;
constexpr off_t kRingOffset = 8192;

// --- Header: the first block of both files ---

namespace header_at {
constexpr uint32_t kMagic = 0;  // 8: "KRTISAMX" in the index file, "KRTISAMD"
                                // in the data file; zeros until the creation
                                // is finished
constexpr uint32_t kChecksum = 8;  // 8: of all from kVersion on
constexpr uint32_t kVersion = 16;  // 1
constexpr uint32_t kPageSize = 20;
constexpr uint32_t kSalt = 24;  // 8: random, the same in both files
constexpr uint32_t kRecordLength = 32;
constexpr uint32_t kRingSize = 36;  // bytes
constexpr uint32_t kDataExtension = 40;
constexpr uint32_t kDataMode = 44;
constexpr uint32_t kIndexExtension = 48;
constexpr uint32_t kIndexMode = 52;
constexpr uint32_t kIndexCount = 56;
constexpr uint32_t kIndexes = 64;  // kIndexDefSize for each
}  // namespace header_at

// In the header, for each index.
namespace index_at {
constexpr uint32_t kValueLength = 0;   // 2: of its segments together
constexpr uint32_t kDuplicates = 2;    // 1
constexpr uint32_t kSegmentCount = 3;  // 1
constexpr uint32_t kSegments = 4;      // kSegmentDefSize for each
}  // namespace index_at
namespace segment_at {
constexpr uint32_t kOffset = 0;  // 2
constexpr uint32_t kLength = 2;  // 2
constexpr uint32_t kMode = 4;    // 1
}  // namespace segment_at
constexpr uint32_t kSegmentDefSize = 6;
constexpr uint32_t kIndexDefSize =
    index_at::kSegments + kIsamMaxSegments * kSegmentDefSize;

// --- State block ---

namespace state_at {
constexpr uint32_t kChecksum = 0;  // 8: of all from kPhase on
constexpr uint32_t kPhase = 8;
constexpr uint32_t kCommit = 16;       // 8
constexpr uint32_t kChanges = 24;      // 8: a counter
constexpr uint32_t kBootId = 32;       // 16: of the kernel under which it was
                                       // written; zeros: not trusted
constexpr uint32_t kEntryOffset = 48;  // in the ring, of that commit's entry
constexpr uint32_t kEntryLength = 52;
constexpr uint32_t kHalfFirst = 56;  // 8: number of the first commit whose
                                     // entry is in the same half of the ring
}  // namespace state_at

// --- Root page ---

namespace root_at {
constexpr uint32_t kChecksum = 0;  // 8: of all from kCommit on
constexpr uint32_t kCommit = 8;    // 8
constexpr uint32_t kRecords = 16;  // 8
constexpr uint32_t kNextSerial = 24;
constexpr uint32_t kPagesUsed = 28;
constexpr uint32_t kPagesCapacity = 32;  // pages in the file
constexpr uint32_t kFreePage = 36;       // the first
constexpr uint32_t kSlotsUsed = 40;
constexpr uint32_t kSlotsCapacity = 44;
constexpr uint32_t kFreeSlot = 48;
constexpr uint32_t kTrees = 64;  // kTreeSize for each index: the page number of
                                 // its root and its depth (0: empty)
}  // namespace root_at
constexpr uint32_t kTreeSize = 8;

// --- Page of a tree, or a free one ---

namespace page_at {
constexpr uint32_t kChecksum = 0;  // 8: of kCommit to the end of the entries
constexpr uint32_t kCommit = 8;    // 8
constexpr uint32_t kNumber = 16;
constexpr uint32_t kType = 20;   // 1
constexpr uint32_t kIndex = 21;  // 1
constexpr uint32_t kLevel = 22;  // 1: 1 for a leaf
constexpr uint32_t kCount = 24;  // 2: of entries
constexpr uint32_t kNext = 28;   // free page
constexpr uint32_t kEntries = 32;
}  // namespace page_at
constexpr uint32_t kPageHeader = page_at::kEntries;
// The entries are in ascending order: key, then the slot of the record (leaf),
// or the page that holds the keys from this one on (inner page; there the first
// key is not looked at). A key is the segments of the record in order, and,
// where duplicates are allowed, the serial number, most significant byte first:
// so no two keys of an index are equal.
constexpr uint32_t kTargetSize = 4;

// --- Slot ---

namespace slot_at {
constexpr uint32_t kChecksum = 0;  // 8: of all from kNext on
constexpr uint32_t kNext = 8;      // kSlotUsed, or the next free slot (0: none)
constexpr uint32_t kRecord = 12;   // of a free slot the serial number, and
                                   // zeros: the highest serial number in any
                                   // slot is thus the last that was given
}  // namespace slot_at
constexpr uint32_t kSlotHeader = slot_at::kRecord;
constexpr uint32_t kSerialSize = 4;  // of a record's first bytes
constexpr uint32_t kSlotUsed = 0xffffffff;
constexpr uint32_t kLastSerial = 0xfffffffe;  // no higher number is given

// --- Ring entry, at a multiple of kSector ---

namespace entry_at {
constexpr uint32_t kMagic = 0;     // 8: "KRTREDO1"
constexpr uint32_t kChecksum = 8;  // 8: of all from kSalt on
constexpr uint32_t kSalt = 16;     // 8
constexpr uint32_t kCommit = 24;   // 8
constexpr uint32_t kBase = 32;     // 8: the commits before it are on disk, in
                                   // place, in both files
constexpr uint32_t kLength = 40;
constexpr uint32_t kImageCount = 44;
constexpr uint32_t kImages = 48;
}  // namespace entry_at
constexpr uint32_t kEntryHeader = entry_at::kImages;

// In an entry, for each thing that the commit changed.
namespace image_at {
constexpr uint32_t kKind = 0;
constexpr uint32_t kNumber = 4;
constexpr uint32_t kLength = 8;
constexpr uint32_t kBytes = 12;  // as they are to stand in place
}  // namespace image_at
constexpr uint32_t kImageHeader = image_at::kBytes;

// --- Field definitions ---

namespace fields_at {
constexpr uint32_t kChecksum = 0;  // 8: of all from kCount on
constexpr uint32_t kCount = 8;
constexpr uint32_t kFields = 16;  // kFieldSize for each
}  // namespace fields_at
namespace field_at {
constexpr uint32_t kName = 0;  // 32
constexpr uint32_t kOffset = 32;
constexpr uint32_t kType = 36;
constexpr uint32_t kLength = 40;
}  // namespace field_at
constexpr uint32_t kFieldSize = 44;

constexpr uint32_t kMagicSize = 8;

struct Segment {
  uint16_t offset;
  uint16_t length;
  uint8_t mode;
};

struct Index {
  uint32_t value_length;  // the segments together
  uint32_t key_length;    // with the serial number of duplicates
  bool duplicates;
  uint32_t segment_count;
  Segment segments[kIsamMaxSegments];

  uint32_t entry_size() const { return key_length + kTargetSize; }
  uint32_t capacity() const { return (kPageSize - kPageHeader) / entry_size(); }
};

// What the header says, and what follows from it.
struct Layout {
  uint64_t salt;
  uint32_t record_length;
  uint32_t ring_size;
  uint32_t data_extension, data_mode;
  uint32_t index_extension, index_mode;
  uint32_t index_count;
  Index index[kIsamMaxIndexes];

  uint32_t slot_size() const { return kSlotHeader + record_length; }
  static off_t page_offset(uint32_t page) {
    return kPagesOffset + static_cast<off_t>(page - 1) * kPageSize;
  }
  off_t slot_offset(uint32_t slot) const {
    return kRingOffset + static_cast<off_t>(ring_size) +
           static_cast<off_t>(slot - 1) * slot_size();
  }
};

enum class Phase : uint32_t { kApplied = 1, kApplying = 2, kRebuilding = 3 };

struct State {
  Phase phase;
  uint64_t commit;
  uint64_t changes;
  uint8_t boot_id[16];
  uint32_t entry_offset;
  uint32_t entry_length;
  uint64_t half_first;
};

struct Tree {
  uint32_t page;
  uint32_t depth;
};

struct Root {
  uint64_t commit;
  uint64_t records;
  uint32_t next_serial;
  uint32_t pages_used, pages_capacity, free_page;
  uint32_t slots_used, slots_capacity, free_slot;
  Tree tree[kIsamMaxIndexes];
};

enum class PageType : uint8_t { kLeaf = 1, kInner = 2, kFree = 3 };
enum class ImageKind : uint32_t { kRoot = 1, kPage = 2, kSlot = 3 };
enum class FileKind { kIndex, kData };

// The layout of a new table, the salt aside. kIsamBadArgument when the
// description is impossible.
[[nodiscard]] isam_code MakeLayout(const IFIL& from, Layout* layout);

void EncodeHeader(const Layout& layout, FileKind kind, uint8_t* out);
// kIsamNoFile (zeros: the creation was not finished), kIsamBadVersion or
// kIsamDamaged.
[[nodiscard]] isam_code DecodeHeader(const uint8_t* in, FileKind kind,
                                     Layout* layout);

// The decoders give false for a block that is not whole and possible.
void EncodeState(const State& state, uint64_t salt, uint8_t* out);
[[nodiscard]] bool DecodeState(const uint8_t* in, const Layout& layout,
                               State* state);
void EncodeRoot(const Root& root, uint64_t salt, uint8_t* out);
[[nodiscard]] bool DecodeRoot(const uint8_t* in, const Layout& layout,
                              Root* root);
void EncodeFields(const DODA* fields, int count, uint64_t salt, uint8_t* out);
// `fields` has room for kIsamMaxFields. The count, or -1.
[[nodiscard]] int DecodeFields(const uint8_t* in, uint64_t salt, DODA* fields);

}  // namespace isam

#endif  // ISAM_ISFORMAT_H_
