#include "isam/isupdate.h"

#include <cstring>
#include <vector>

#include "isam/iscommit.h"
#include "isam/iskey.h"
#include "isam/ispage.h"
#include "isam/isread.h"
#include "isam/istree.h"

namespace isam {
namespace {

// How often a change meets a bad page that the ring has a good one for. Once,
// as all is mended then; an owner who damages it again need not stop at that.
constexpr int kMostRepairs = 3;

// Builds a change with `build` and commits it.
template <typename Build>
isam_code Update(Table& table, bool keep_lock, Build build) {
  WriteScope scope{table};
  // Room for what is the current record afterwards: a change that was made must
  // not fail for it.
  table.cursor.record.reserve(table.layout.record_length);
  isam_code code = BeginWrite(table);
  for (int repairs = 0; code == kIsamOk; ++repairs) {
    Change change(table);
    code = build(change);
    if (code != kIsamOk) break;
    if (!table.overlay) {
      code = Commit(change);
      break;
    }
    // The build met a bad page: mend it and build anew.
    code = repairs < kMostRepairs ? Repair(table) : kIsamDamaged;
  }
  scope.keep = code == kIsamOk && (keep_lock || table.keep_lock);
  return code;
}

// Where the current record is now, and what the table holds for it, which may
// have changed since it was read. kIsamNoCurrent when it was deleted.
isam_code FindCurrent(Table& table, uint32_t* slot,
                      std::vector<uint8_t>* record) {
  const Index& index = table.layout.index[0];
  uint8_t key[kIsamMaxKey];
  RecordKey(index, table.cursor.record.data(), key);
  TreePos pos;
  isam_code code = TreeSeek(table, 0, key, index.key_length, &pos);
  const uint8_t* entry;
  if (code == kIsamOk) code = TreeEntry(table, pos, &entry);
  if (code == kIsamNotFound) return kIsamNoCurrent;
  if (code != kIsamOk) return code;
  if (memcmp(entry, key, index.key_length) != 0) return kIsamNoCurrent;
  *slot = EntryTarget(entry, index);
  code = GetSlot(table, *slot);
  if (code != kIsamOk) return code;
  if (!SlotInUse(table.slot.data())) return kIsamDamaged;
  record->assign(table.slot.begin() + kSlotHeader, table.slot.end());
  return kIsamOk;
}

isam_code ReplaceKey(Change& change, uint32_t index, const uint8_t* before,
                     const uint8_t* after, uint32_t slot) {
  const Index& def = change.table.layout.index[index];
  uint8_t old_key[kIsamMaxKey], new_key[kIsamMaxKey];
  RecordKey(def, before, old_key);
  RecordKey(def, after, new_key);
  if (memcmp(old_key, new_key, def.key_length) == 0) return kIsamOk;
  if (isam_code code = TreeRemove(change, index, old_key)) return code;
  return TreeInsert(change, index, new_key, slot);
}

isam_code BuildAdd(Change& change, const uint8_t* record) {
  const Layout& layout = change.table.layout;
  uint32_t slot;
  if (isam_code code = change.NewSlot(&slot)) return code;
  for (uint32_t i = 0; i < layout.index_count; ++i) {
    uint8_t key[kIsamMaxKey];
    RecordKey(layout.index[i], record, key);
    if (isam_code code = TreeInsert(change, i, key, slot)) return code;
  }
  change.PutSlot(slot, record);
  ++change.root.records;
  return kIsamOk;
}

isam_code BuildRewrite(Change& change, const uint8_t* record) {
  Table& table = change.table;
  uint32_t slot;
  std::vector<uint8_t> before;
  if (isam_code code = FindCurrent(table, &slot, &before)) return code;
  for (uint32_t i = 0; i < table.layout.index_count; ++i) {
    const isam_code code = ReplaceKey(change, i, before.data(), record, slot);
    if (code != kIsamOk) return code;
  }
  change.PutSlot(slot, record);
  return kIsamOk;
}

isam_code BuildDelete(Change& change) {
  Table& table = change.table;
  uint32_t slot;
  std::vector<uint8_t> before;
  if (isam_code code = FindCurrent(table, &slot, &before)) return code;
  for (uint32_t i = 0; i < table.layout.index_count; ++i) {
    uint8_t key[kIsamMaxKey];
    RecordKey(table.layout.index[i], before.data(), key);
    if (isam_code code = TreeRemove(change, i, key)) return code;
  }
  change.FreeSlot(slot, Get32(before.data()));
  --change.root.records;
  return kIsamOk;
}

bool HasCurrent(const Table& table) {
  return table.cursor.present && !table.cursor.deleted;
}

}  // namespace

isam_code AddRecord(Table& table, uint8_t* record, bool keep_lock) {
  std::vector<uint8_t> added(record, record + table.layout.record_length);
  const isam_code code = Update(table, keep_lock, [&](Change& change) {
    if (change.root.next_serial > kLastSerial) return kIsamTableFull;
    Put32(added.data(), change.root.next_serial++);
    return BuildAdd(change, added.data());
  });
  if (code != kIsamOk) return code;
  memcpy(record, added.data(), kSerialSize);
  SetCursor(table, record);
  return kIsamOk;
}

isam_code RewriteRecord(Table& table, uint8_t* record, bool keep_lock) {
  std::vector<uint8_t> after(record, record + table.layout.record_length);
  const isam_code code = Update(table, keep_lock, [&](Change& change) {
    if (!HasCurrent(table)) return kIsamNoCurrent;
    memcpy(after.data(), table.cursor.record.data(), kSerialSize);
    return BuildRewrite(change, after.data());
  });
  if (code != kIsamOk) return code;
  memcpy(record, after.data(), kSerialSize);
  SetCursor(table, record);
  return kIsamOk;
}

isam_code DeleteRecord(Table& table, bool keep_lock) {
  const isam_code code = Update(table, keep_lock, [&](Change& change) {
    return HasCurrent(table) ? BuildDelete(change) : kIsamNoCurrent;
  });
  if (code == kIsamOk) table.cursor.deleted = true;
  return code;
}

}  // namespace isam
