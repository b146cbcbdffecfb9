// An open table: its two files, what is known of their contents, and how a
// reader makes sure that what it knows is still so.
#ifndef ISAM_ISTABLE_H_
#define ISAM_ISTABLE_H_

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "isam/isformat.h"
#include "isam/islock.h"
#include "isam/isring.h"
#include "util/kutio.h"

namespace isam {

// Pages that were read, found good, and have not been changed since.
class PageCache {
 public:
  // Null when the page is not here.
  const uint8_t* Find(uint32_t page) const;
  // Room of kPageSize bytes for the page, until the next Room or Clear.
  uint8_t* Room(uint32_t page);
  void Drop(uint32_t page);
  void Clear();

 private:
  struct Slot {
    uint32_t page = 0;
    std::unique_ptr<uint8_t[]> bytes;
  };
  std::vector<Slot> slots_;
};

// The current record as it was last seen by this opener.
struct Cursor {
  bool present = false;
  bool deleted = false;  // by us: a place to go on from, but not a record
  std::vector<uint8_t> record;
};

enum class Direction { kNone, kForwards, kBackwards };

// Records that were read together with the current one and follow it.
struct ReadAhead {
  uint32_t index = 0;
  Direction direction = Direction::kNone;  // kNone: nothing here
  uint32_t count = 0, next = 0;
  int64_t read_ms = 0;         // when, and
  uint64_t local_changes = 0;  // after how many commits of this process
  std::vector<uint8_t> records;
};

struct Table {
  std::string name;  // path without extension
  UniqueFd dat, idx;
  bool writable = false;
  Layout layout;

  // The state block as it was read, and what it led to. `current` is false when
  // the files have to be asked again.
  bool current = false;
  uint8_t state_bytes[kStateSize];
  State state;
  Root root;
  PageCache cache;
  // Set when the files in place cannot be believed; a writer repairs them
  // first.
  std::unique_ptr<Overlay> overlay;
  bool ring_bad = false;  // it was looked at, and is of no use in this state

  Cursor cursor;
  ReadAhead ahead;
  std::vector<uint8_t> slot;  // room to read one slot

  Lock writer;
  bool keep_lock = false;    // isam_lock was called
  bool dat_checked = false;  // the data file is the one of this index file
};

// Opens <name>.dat and <name>.idx.
[[nodiscard]] isam_code OpenTable(const std::string& name, bool writable,
                                  std::unique_ptr<Table>* out);

// Brings `table` up to what the files say now. Without `locked` (the writer or
// the read lock held) it only accepts files that need no repair, and answers
// kIsamCannotLock otherwise.
[[nodiscard]] isam_code Refresh(Table& table, bool locked);

// Whether the files are still as `table` knows them: one small read.
[[nodiscard]] bool StillCurrent(const Table& table);

// Whether the files have room for all slots and pages that the root page
// counts: room is made before the root page says so.
[[nodiscard]] bool SizesHold(const Table& table, const struct stat& dat,
                             const struct stat& idx);

// Forgets what is known of the contents.
void Forget(Table& table);

// Loads the ring when something in place turned out to be bad.
[[nodiscard]] isam_code NeedOverlay(Table& table);

// Runs `step`, which only reads, on one state of the table, the newest.
//
// The state block is different after every commit and while one is written in
// place. So when it is the same after the step as it was before, everything in
// between was read from one state, without any lock; otherwise what the step
// found, errors included, means nothing, and it is run again, at last with the
// read lock, which keeps commits from being written in place.
template <typename Step>
[[nodiscard]] isam_code ReadConsistently(Table& table, Step step) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!table.current && Refresh(table, false) != kIsamOk) break;
    const isam_code code = step();
    if (StillCurrent(table)) return code;
    Forget(table);
  }
  Lock lock;
  if (isam_code code = lock.TakeRead(table.idx.get())) return code;
  if (isam_code code = Refresh(table, true)) return code;
  return step();
}

}  // namespace isam

#endif  // ISAM_ISTABLE_H_
