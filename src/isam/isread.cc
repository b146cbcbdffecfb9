#include "isam/isread.h"

#include <algorithm>
#include <cstring>

#include "isam/iscommit.h"
#include "isam/iskey.h"
#include "isam/ispage.h"
#include "isam/issys.h"
#include "isam/istree.h"
#include "util/kuttime.h"

namespace isam {
namespace {

constexpr uint32_t kMostAhead = 32;
// So long a walk goes on with what it has read ahead without asking whether it
// is still so: asking costs as much as reading a record.
constexpr int64_t kFreshMs = 10;

struct Query {
  uint32_t index;
  Step step;
  uint8_t key[kIsamMaxKey];  // of kEqual and kGreaterEqual a value, else a key
  uint32_t want;             // how many records to read

  Direction direction() const {
    return step == Step::kPrev ? Direction::kBackwards : Direction::kForwards;
  }
};

isam_code SeekBefore(Table& table, const Query& query, uint32_t length,
                     TreePos* pos) {
  const isam_code code = TreeSeek(table, query.index, query.key, length, pos);
  if (code == kIsamNotFound) return TreeLast(table, query.index, pos);
  return code == kIsamOk ? TreePrev(table, pos) : code;
}

isam_code SeekAfter(Table& table, const Query& query, uint32_t length,
                    TreePos* pos) {
  if (isam_code code = TreeSeek(table, query.index, query.key, length, pos))
    return code;
  const uint8_t* entry;
  if (isam_code code = TreeEntry(table, *pos, &entry)) return code;
  return memcmp(entry, query.key, length) == 0 ? TreeNext(table, pos) : kIsamOk;
}

isam_code SeekEqual(Table& table, const Query& query, uint32_t length,
                    TreePos* pos) {
  if (isam_code code = TreeSeek(table, query.index, query.key, length, pos))
    return code;
  const uint8_t* entry;
  if (isam_code code = TreeEntry(table, *pos, &entry)) return code;
  return memcmp(entry, query.key, length) == 0 ? kIsamOk : kIsamNotFound;
}

isam_code Seek(Table& table, const Query& query, TreePos* pos) {
  const Index& index = table.layout.index[query.index];
  switch (query.step) {
    case Step::kFirst:
      return TreeFirst(table, query.index, pos);
    case Step::kLast:
      return TreeLast(table, query.index, pos);
    case Step::kNext:
      return SeekAfter(table, query, index.key_length, pos);
    case Step::kPrev:
      return SeekBefore(table, query, index.key_length, pos);
    case Step::kEqual:
      return SeekEqual(table, query, index.value_length, pos);
    case Step::kGreaterEqual:
      return TreeSeek(table, query.index, query.key, index.value_length, pos);
  }
  return kIsamBadArgument;
}

// The record at `pos` into table.slot. It must have the key that led to it:
// that finds records and keys that do not belong together, and since each step
// then goes to a greater (or lesser) key, a walk over damaged files ends too.
isam_code Fetch(Table& table, const TreePos& pos, uint8_t* key) {
  const Index& index = table.layout.index[pos.index];
  const uint8_t* entry;
  if (isam_code code = TreeEntry(table, pos, &entry)) return code;
  memcpy(key, entry, index.key_length);
  if (isam_code code = GetSlot(table, EntryTarget(entry, index))) return code;
  const uint8_t* slot = table.slot.data();
  if (!SlotInUse(slot) || !SerialWasGiven(slot, kLastSerial + 1)) {
    return kIsamDamaged;
  }
  uint8_t of_record[kIsamMaxKey];
  RecordKey(index, slot + kSlotHeader, of_record);
  return memcmp(key, of_record, index.key_length) == 0 ? kIsamOk : kIsamDamaged;
}

bool InOrder(const Index& index, const uint8_t* earlier, const uint8_t* later,
             Direction direction) {
  const int order = memcmp(later, earlier, index.key_length);
  return direction == Direction::kForwards ? order > 0 : order < 0;
}

// Reads the records that `query` asks for into table.ahead.
isam_code Collect(Table& table, const Query& query) {
  ReadAhead& ahead = table.ahead;
  const Index& index = table.layout.index[query.index];
  const uint32_t length = table.layout.record_length;
  const Direction direction = query.direction();
  ahead.direction = Direction::kNone;
  ahead.count = ahead.next = 0;
  ahead.read_ms = Kut_coarse_ms();
  ahead.local_changes = LocalChanges();
  uint8_t last[kIsamMaxKey], key[kIsamMaxKey];
  bool ordered = query.step == Step::kNext || query.step == Step::kPrev;
  if (ordered) memcpy(last, query.key, index.key_length);
  TreePos pos;
  isam_code code = Seek(table, query, &pos);
  while (code == kIsamOk) {
    code = Fetch(table, pos, key);
    if (code == kIsamOk && ordered && !InOrder(index, last, key, direction))
      code = kIsamDamaged;
    if (code != kIsamOk) break;
    const size_t end = size_t{length} * (ahead.count + 1);
    if (ahead.records.size() < end) ahead.records.resize(end);
    memcpy(ahead.records.data() + end - length, table.slot.data() + kSlotHeader,
           length);
    if (++ahead.count == query.want) break;
    memcpy(last, key, index.key_length);
    ordered = true;
    code = direction == Direction::kForwards ? TreeNext(table, &pos)
                                             : TreePrev(table, &pos);
  }
  // A failure behind the first record is reported when it is reached.
  if (ahead.count == 0) return code;
  ahead.index = query.index;
  ahead.direction = direction;
  return kIsamOk;
}

// Whether the record that `step` leads to is among those read ahead, which may
// be served.
bool IsAhead(Table& table, uint32_t index, Step step) {
  ReadAhead& ahead = table.ahead;
  const Direction direction = step == Step::kNext   ? Direction::kForwards
                              : step == Step::kPrev ? Direction::kBackwards
                                                    : Direction::kNone;
  if (direction == Direction::kNone || ahead.direction != direction ||
      ahead.index != index || ahead.next == ahead.count)
    return false;
  const int64_t now = Kut_coarse_ms();
  if (now - ahead.read_ms < kFreshMs && ahead.local_changes == LocalChanges())
    return true;
  ahead.read_ms = now;
  ahead.local_changes = LocalChanges();
  return table.current && StillCurrent(table);
}

// A single look-up reads one record; a walk reads more with each turn.
uint32_t HowMany(const Table& table, const Query& query) {
  if (query.step != Step::kNext && query.step != Step::kPrev) return 1;
  const ReadAhead& ahead = table.ahead;
  const bool walking = ahead.index == query.index && ahead.count > 0 &&
                       ahead.next == ahead.count;
  return walking ? std::min(ahead.count * 4, kMostAhead) : 1;
}

void TakeNextAhead(Table& table, uint8_t* out) {
  ReadAhead& ahead = table.ahead;
  const uint32_t length = table.layout.record_length;
  const uint8_t* record = ahead.records.data() + size_t{length} * ahead.next++;
  SetCursor(table, record);
  if (out != nullptr) memcpy(out, record, length);
}

}  // namespace

void SetCursor(Table& table, const uint8_t* record) {
  Cursor& cursor = table.cursor;
  cursor.record.assign(record, record + table.layout.record_length);
  cursor.present = true;
  cursor.deleted = false;
}

isam_code ReadStep(Table& table, uint32_t index, Step step,
                   const uint8_t* value, uint8_t* out) {
  const bool relative = step == Step::kNext || step == Step::kPrev;
  if (relative && !table.cursor.present) return kIsamNoCurrent;
  if (!IsAhead(table, index, step)) {
    Query query;
    query.index = index;
    query.step = step;
    query.want = HowMany(table, query);
    if (relative)
      RecordKey(table.layout.index[index], table.cursor.record.data(),
                query.key);
    else if (value != nullptr)
      SearchKey(table.layout.index[index], value, query.key);
    const isam_code code =
        ReadConsistently(table, [&] { return Collect(table, query); });
    if (code != kIsamOk) return code;
  }
  TakeNextAhead(table, out);
  return kIsamOk;
}

}  // namespace isam
