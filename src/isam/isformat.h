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
// Header
//    0  8 magic            "KRTISAMX" in the index file, "KRTISAMD" in the data
//                          file; zeros until the creation is finished
//    8  8 checksum         of 16 to 2047
//   16  4 version          1
//   20  4 page size        kPageSize
//   24  8 salt             random, the same in both files
//   32  4 record length    36 4 ring size, bytes
//   40  4 data extension   44 4 data mode
//   48  4 index extension  52 4 index mode      56 4 number of indexes
//   64 52 for each index:
//          2 length of its segments together  1 duplicates  1 segments
//          8 segments of: 2 offset  2 length  1 mode  1 zero
//
// State block (64 bytes)
//    0  8 checksum of 8 to 63      8  4 phase        12 4 zero
//   16  8 commit number           24  8 change counter
//   32 16 boot id of the kernel under which it was written; zeros: not trusted
//   48  4 ring offset of that commit's entry         52 4 its length
//   56  8 number of the first commit whose entry is in the same half of the
//   ring
//
// Root page (192 bytes)
//    0  8 checksum of 8 to 191     8  8 commit number    16 8 records
//   24  4 next serial number      28  4 pages in use     32 4 pages in the file
//   36  4 first free page         40  4 slots in use     44 4 slots in the file
//   48  4 first free slot         52 12 zero
//   64  8 for each index: 4 page number of its root, 4 depth (0 = empty)
//
// Page
//    0  8 checksum of 8 to the end of the entries        8 8 commit number
//   16  4 page number   20 1 type     21 1 index    22 1 level (1 = leaf)
//   23  1 zero          24 2 entries  26 2 zero     28 4 next free page
//   32    entries in ascending order: key, then 4 bytes: the slot of the record
//         (leaf), or the page that holds the keys from this one on (inner page;
//         there the first key is not looked at)
//   A key is the segments of the record in order, and, where duplicates are
//   allowed, the serial number, most significant byte first: so no two keys of
//   an index are equal.
//
// Slot
//    0  8 checksum of the rest
//    8  4 kSlotUsed, or the next free slot (0: this is the last)
//   12    the record; of a free slot the serial number, and zeros: the highest
//         serial number in any slot is thus the last that was given
//
// Ring entry, at a multiple of 512
//    0  8 magic "KRTREDO1"        8  8 checksum of 16 to the end
//   16  8 salt   24 8 commit number
//   32  8 base: the commits before it are on disk, in place, in both files
//   40  4 length 44 4 images
//   48    images: 4 kind, 4 number, 4 length, then the bytes as they are to
//         stand in place
#ifndef ISAM_ISFORMAT_H_
#define ISAM_ISFORMAT_H_

#include <sys/types.h>

#include <cstdint>

#include "isam/isam.h"

namespace isam {

constexpr uint32_t kPageSize = 2048;
constexpr uint32_t kMaxDepth = 8;  // levels of a tree
constexpr uint32_t kSector = 512;  // the disk tears no write below this

constexpr uint32_t kHeaderSize = 2048;
constexpr off_t kStateOffset = 2048;
constexpr uint32_t kStateSize = 64;
constexpr off_t kRootOffset = 2560;
constexpr uint32_t kRootSize = 192;
constexpr uint32_t kOpenSize = 2560 + kRootSize;  // what an open reads
constexpr off_t kPagesOffset = 4096;
constexpr off_t kFieldsOffset = 2048;
constexpr uint32_t kFieldsSize = 6144;
constexpr off_t kRingOffset = 8192;

constexpr uint32_t kPageHeader = 32;
constexpr uint32_t kSlotHeader = 12;
constexpr uint32_t kSlotUsed = 0xffffffff;
constexpr uint32_t kLastSerial = 0xfffffffe;  // no higher number is given
constexpr uint32_t kEntryHeader = 48;
constexpr uint32_t kImageHeader = 12;

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

  uint32_t entry_size() const { return key_length + 4; }
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
