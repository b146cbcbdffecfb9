#include "isam/iscommit.h"

#include <algorithm>
#include <cstring>

#include "isam/isbytes.h"
#include "isam/ispage.h"
#include "isam/issys.h"
#include "util/kutguard.h"

namespace isam {
namespace {

uint64_t g_local_changes = 0;

constexpr off_t kLeastStep = 64 * 1024;
constexpr off_t kLargestStep = 1024 * 1024;

// Writes the state block under the apply lock that the caller holds.
isam_code WriteState(Table& table, const State& state) {
  uint8_t bytes[kStateSize];
  EncodeState(state, table.layout.salt, bytes);
  return WriteAt(table.idx.get(), bytes, kStateSize, kStateOffset);
}

// After a flush has failed nothing unflushed can be believed: the kernel may
// have dropped the writes of earlier commits, and will not say so again. A
// state block that is not trusted makes the next writer write the ring's
// contents once more before it goes on.
void Distrust(Table& table) {
  State state = table.state;
  memset(state.boot_id, 0, sizeof state.boot_id);
  ++state.changes;
  Lock lock;
  if (lock.TakeApply(table.idx.get()) == kIsamOk &&
      WriteState(table, state) == kIsamOk)
    Forget(table);
}

isam_code SyncOrDistrust(Table& table, int fd) {
  const isam_code code = SyncFile(fd);
  if (code != kIsamOk) Distrust(table);
  return code;
}

// Makes room so that a file has at least `need` units, zero-filled and flushed.
// Growing in steps keeps the flushes that this costs rare.
isam_code GrowFile(Table& table, int fd, off_t start, off_t unit, uint32_t need,
                   uint32_t extension, uint32_t* capacity) {
  if (need <= *capacity) return kIsamOk;
  const off_t from = start + unit * *capacity;
  const off_t least = start + unit * need;
  // Of a file from anybody, which may say anything, no more than the largest.
  const off_t step = std::clamp(std::max<off_t>(extension, from / 16),
                                kLeastStep, kLargestStep);
  const off_t to = (std::max(from + step, least) + 4095) / 4096 * 4096;
  if (isam_code code = WriteZeros(fd, from, to)) {
    g_sys.truncate(fd, from);  // give back what a full disk gave
    return code;
  }
  if (isam_code code = SyncOrDistrust(table, fd)) return code;
  // The last step may go further than numbers reach.
  *capacity = static_cast<uint32_t>(
      std::min<off_t>((to - start) / unit, kSlotUsed - 1));
  return kIsamOk;
}

// After this nothing in a commit needs more disk space.
isam_code Grow(Change& change) {
  Table& table = change.table;
  const Layout& layout = table.layout;
  Root& root = change.root;
  isam_code code = GrowFile(table, table.dat.get(), layout.slot_offset(1),
                            layout.slot_size(), root.slots_used,
                            layout.data_extension, &root.slots_capacity);
  if (code != kIsamOk) return code;
  return GrowFile(table, table.idx.get(), layout.page_offset(1), kPageSize,
                  root.pages_used, layout.index_extension,
                  &root.pages_capacity);
}

Entry BuildEntry(Change& change, uint64_t commit) {
  const Layout& layout = change.table.layout;
  Entry entry(layout, commit);
  change.root.commit = commit;
  uint8_t root[kRootSize];
  EncodeRoot(change.root, layout.salt, root);
  entry.Add(ImageKind::kRoot, 0, root, kRootSize);
  for (auto& [number, page] : change.pages) {
    SealPage(page.get(), layout, commit);
    entry.Add(ImageKind::kPage, number, page.get(),
              PageBytes(page.get(), layout));
  }
  for (auto& [number, slot] : change.slots)
    entry.Add(ImageKind::kSlot, number, slot.data(), layout.slot_size());
  return entry;
}

isam_code WriteRing(Table& table, const void* bytes, size_t size,
                    uint32_t offset) {
  return WriteAt(table.dat.get(), bytes, size,
                 kRingOffset + static_cast<off_t>(offset));
}

// Makes the entry at `offset`, if there is one, no entry.
isam_code VoidEntry(Table& table, uint32_t offset) {
  static constexpr uint8_t kNothing[kSector] = {};
  return WriteRing(table, kNothing, kSector, offset);
}

// Chooses the place of the next entry. When it is the first of its half of the
// ring the index file is flushed: then all entries of the half that it begins
// to overwrite, which lie a lap back, are on disk in place. (The slots of each
// are flushed by the commit that follows it.)
isam_code Place(Table& table, uint32_t size, State* state) {
  const uint32_t ring = table.layout.ring_size;
  const uint32_t last = table.state.entry_offset;
  const uint32_t end =
      (last + table.state.entry_length + kSector - 1) / kSector * kSector;
  const bool wraps = end + size > ring;
  state->entry_offset = wraps ? 0 : end;
  if ((state->entry_offset < ring / 2) == (last < ring / 2) && !wraps)
    return kIsamOk;
  if (isam_code code = SyncOrDistrust(table, table.idx.get())) return code;
  state->half_first = state->commit;
  // A dead process may have left an entry of the same number at the end.
  return wraps && end < ring ? VoidEntry(table, end) : kIsamOk;
}

isam_code WriteInPlace(Table& table, ImageKind kind, uint32_t number,
                       const uint8_t* bytes, uint32_t length) {
  switch (kind) {
    case ImageKind::kRoot:
      return WriteAt(table.idx.get(), bytes, length, kRootOffset);
    case ImageKind::kPage:
      return WriteAt(table.idx.get(), bytes, length,
                     table.layout.page_offset(number));
    case ImageKind::kSlot:
      return WriteAt(table.dat.get(), bytes, length,
                     table.layout.slot_offset(number));
  }
  return kIsamDamaged;
}

isam_code ApplyChange(Change& change) {
  Table& table = change.table;
  const Layout& layout = table.layout;
  uint8_t root[kRootSize];
  EncodeRoot(change.root, layout.salt, root);
  isam_code code = WriteInPlace(table, ImageKind::kRoot, 0, root, kRootSize);
  for (auto& [number, page] : change.pages) {
    if (code != kIsamOk) return code;
    code = WriteInPlace(table, ImageKind::kPage, number, page.get(),
                        PageBytes(page.get(), layout));
  }
  for (auto& [number, slot] : change.slots) {
    if (code != kIsamOk) return code;
    code = WriteInPlace(table, ImageKind::kSlot, number, slot.data(),
                        layout.slot_size());
  }
  return code;
}

// What the table now knows without reading it again: less, without memory. The
// commit stands, so nothing may fail any more.
void Adopt(Change& change, const State& state) {
  Table& table = change.table;
  table.state = state;
  EncodeState(state, table.layout.salt, table.state_bytes);
  table.root = change.root;
  table.ahead.direction = Direction::kNone;
  Kut_guarded(
      [&] {
        for (auto& [number, page] : change.pages)
          memcpy(table.cache.Room(number), page.get(), kPageSize);
      },
      [&] { Forget(table); });
}

// Writes the flushed entry's contents in place. The commit counts from the
// moment the state block says "applying": from then on whoever finds it so, and
// nobody at it, takes the contents from the ring.
isam_code Apply(Change& change, State state) {
  Table& table = change.table;
  Lock lock;
  if (isam_code code = lock.TakeApply(table.idx.get())) return code;
  state.phase = Phase::kApplying;
  if (isam_code code = WriteState(table, state)) {
    g_sys.write(table.idx.get(), table.state_bytes, kStateSize, kStateOffset);
    return code;
  }
  state.phase = Phase::kApplied;
  ++state.changes;
  ++g_local_changes;
  if (ApplyChange(change) == kIsamOk && WriteState(table, state) == kIsamOk &&
      !table.overlay)
    Adopt(change, state);
  else
    Forget(table);
  return kIsamOk;
}

// Someone may have deleted the table, and made another of the same name, since
// it was opened or between the opens of its two files. What is written to
// deleted files is lost, so it must not be acknowledged.
isam_code CheckFiles(Table& table) {
  struct stat dat, idx;
  if (g_sys.stat(table.dat.get(), &dat) != 0 ||
      g_sys.stat(table.idx.get(), &idx) != 0)
    return kIsamIo;
  if (dat.st_nlink == 0 || idx.st_nlink == 0) return kIsamDeleted;
  if (!SizesHold(table, dat, idx)) return kIsamDamaged;
  if (table.dat_checked) return kIsamOk;
  uint8_t bytes[kHeaderSize];
  isam_code code = ReadAt(table.dat.get(), bytes, kHeaderSize, 0);
  if (code != kIsamOk) return code;
  Layout layout;
  code = DecodeHeader(bytes, FileKind::kData, &layout);
  if (code != kIsamOk) return kIsamDamaged;
  table.dat_checked = layout.salt == table.layout.salt;
  return table.dat_checked ? kIsamOk : kIsamDamaged;
}

}  // namespace

uint64_t LocalChanges() { return g_local_changes; }

isam_code Repair(Table& table) {
  if (!table.overlay) return kIsamOk;
  const Overlay& overlay = *table.overlay;
  for (const auto& [key, image] : overlay.images()) {
    const auto& [kind, number] = key;
    if (kind == ImageKind::kPage && number > table.root.pages_capacity)
      return kIsamDamaged;
    if (kind == ImageKind::kSlot && number > table.root.slots_capacity)
      return kIsamDamaged;
    const isam_code code =
        WriteInPlace(table, kind, number, image.bytes, image.length);
    if (code != kIsamOk) return code;
  }
  // No flush: the ring still has it all, until the flushes of later commits.
  State state = table.state;
  state.phase = Phase::kApplied;
  ++state.changes;
  memcpy(state.boot_id, g_sys.boot_id(), sizeof state.boot_id);
  state.entry_offset = overlay.entry_offset();
  state.entry_length = overlay.entry_length();
  state.half_first = overlay.base();
  Lock lock;
  if (isam_code code = lock.TakeApply(table.idx.get())) return code;
  if (isam_code code = WriteState(table, state)) return code;
  lock.Release();
  Forget(table);
  return Refresh(table, true);
}

isam_code BeginWrite(Table& table) {
  if (!table.writable) return kIsamReadOnly;
  if (!table.writer.held()) {
    if (isam_code code = table.writer.TakeWriter(table.idx.get())) return code;
  }
  if (isam_code code = Refresh(table, true)) return code;
  if (isam_code code = CheckFiles(table)) return code;
  return Repair(table);
}

void EndWrite(Table& table, bool keep) {
  if (keep) return;
  table.writer.Release();
  table.keep_lock = false;
}

isam_code Commit(Change& change) {
  Table& table = change.table;
  if (isam_code code = Grow(change)) return code;
  State state = table.state;
  Entry entry = BuildEntry(change, ++state.commit);
  if (isam_code code = Place(table, entry.sealed_size(), &state)) return code;
  state.entry_length = entry.size();
  // The slots of the last commit may not be on disk yet.
  const uint64_t last = std::max<uint64_t>(table.state.commit, 1);
  entry.Seal(std::min(state.half_first, last));
  isam_code code =
      WriteRing(table, entry.bytes().data(), entry.size(), state.entry_offset);
  bool flushed = true;
  if (code == kIsamOk) {
    code = SyncFile(table.dat.get());
    flushed = code == kIsamOk;
  }
  if (code == kIsamOk) code = Apply(change, state);
  if (code == kIsamOk) return code;
  // Taken back before anybody is told to look in the ring.
  if (VoidEntry(table, state.entry_offset) == kIsamOk && flushed)
    flushed = SyncFile(table.dat.get()) == kIsamOk;
  if (!flushed) Distrust(table);
  return code;
}

}  // namespace isam
