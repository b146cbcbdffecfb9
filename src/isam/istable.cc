#include "isam/istable.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "isam/isbytes.h"
#include "isam/issys.h"

namespace isam {
namespace {

constexpr uint32_t kCachedPages = 64;

// In place, applied, and by this run of the kernel, whose page cache has every
// write, even of processes that were killed right after it.
bool Trusted(const State& state) {
  return state.phase == Phase::kApplied &&
         memcmp(state.boot_id, g_sys.boot_id(), sizeof state.boot_id) == 0;
}

// The root page in `bytes`, if it belongs to the state of `table`.
bool AcceptRoot(Table& table, const uint8_t* bytes) {
  return DecodeRoot(bytes, table.layout, &table.root) &&
         table.root.commit == table.state.commit;
}

isam_code OpenFile(const std::string& path, bool writable, UniqueFd* fd) {
  fd->reset(g_sys.open(path.c_str(), writable ? O_RDWR : O_RDONLY, 0));
  return fd->valid() ? kIsamOk : CodeFromErrno();
}

// Why there is no usable index file beside the data file: a creation or
// deletion under way, or a loss.
isam_code MissingIndex(const Table& table) {
  struct stat st;
  if (g_sys.stat(table.dat.get(), &st) != 0) return kIsamIo;
  uint8_t bytes[kHeaderSize];
  Layout layout;
  const bool has_records =
      ReadAt(table.dat.get(), bytes, kHeaderSize, 0) == kIsamOk &&
      DecodeHeader(bytes, FileKind::kData, &layout) == kIsamOk &&
      st.st_size > layout.slot_offset(1);
  return st.st_nlink > 0 && has_records ? kIsamDamaged : kIsamNoFile;
}

// The state block is not from this run of the kernel, or in the middle of a
// commit, or unreadable: the ring says what the table is.
isam_code RefreshFromRing(Table& table, bool state_valid) {
  const bool same_boot =
      state_valid && memcmp(table.state.boot_id, g_sys.boot_id(),
                            sizeof table.state.boot_id) == 0;
  isam_code code = Overlay::Load(table.dat.get(), table.layout,
                                 state_valid ? table.state.commit : 0,
                                 same_boot, &table.overlay);
  if (code != kIsamOk) return code;
  if (!state_valid) table.state = {};
  table.state.commit = table.overlay->commit();
  if (const Image* image = table.overlay->Find(ImageKind::kRoot, 0))
    return AcceptRoot(table, image->bytes) ? kIsamOk : kIsamDamaged;
  uint8_t bytes[kRootSize];
  code = ReadAt(table.idx.get(), bytes, kRootSize, kRootOffset);
  if (code != kIsamOk) return code;
  return AcceptRoot(table, bytes) ? kIsamOk : kIsamDamaged;
}

}  // namespace

const uint8_t* PageCache::Find(uint32_t page) const {
  if (slots_.empty()) return nullptr;
  const Slot& slot = slots_[page % kCachedPages];
  return slot.page == page ? slot.bytes.get() : nullptr;
}

uint8_t* PageCache::Room(uint32_t page) {
  if (slots_.empty()) slots_.resize(kCachedPages);
  Slot& slot = slots_[page % kCachedPages];
  if (!slot.bytes) slot.bytes.reset(new uint8_t[kPageSize]);
  slot.page = page;
  return slot.bytes.get();
}

void PageCache::Drop(uint32_t page) {
  if (Find(page) != nullptr) slots_[page % kCachedPages].page = 0;
}

void PageCache::Clear() {
  for (Slot& slot : slots_) slot.page = 0;
}

void Forget(Table& table) {
  table.current = false;
  table.overlay.reset();
  table.ring_bad = false;
  table.cache.Clear();
  table.ahead.direction = Direction::kNone;
}

isam_code OpenTable(const std::string& name, bool writable,
                    std::unique_ptr<Table>* out) {
  auto table = std::make_unique<Table>();
  table->name = name;
  table->writable = writable;
  isam_code code = OpenFile(name + ".dat", writable, &table->dat);
  if (code != kIsamOk) return code;
  code = OpenFile(name + ".idx", writable, &table->idx);
  if (code == kIsamNoFile) return MissingIndex(*table);
  if (code != kIsamOk) return code;
  uint8_t bytes[kOpenSize];
  code = ReadAt(table->idx.get(), bytes, sizeof bytes, 0);
  if (code == kIsamOk)
    code = DecodeHeader(bytes, FileKind::kIndex, &table->layout);
  else if (code == kIsamDamaged)
    code = kIsamNoFile;  // too short to be finished
  if (code == kIsamNoFile) return MissingIndex(*table);
  if (code != kIsamOk) return code;
  // State block and root page may have been read in the middle of a commit. The
  // first operation finds out, as it finds every other change.
  memcpy(table->state_bytes, bytes + kStateOffset, kStateSize);
  table->current =
      DecodeState(table->state_bytes, table->layout, &table->state) &&
      Trusted(table->state) && AcceptRoot(*table, bytes + kRootOffset);
  *out = std::move(table);
  return kIsamOk;
}

bool SizesHold(const Table& table, const struct stat& dat,
               const struct stat& idx) {
  const Root& root = table.root;
  return dat.st_size >= table.layout.slot_offset(root.slots_capacity + 1) &&
         idx.st_size >= table.layout.page_offset(root.pages_capacity + 1);
}

bool StillCurrent(const Table& table) {
  uint8_t bytes[kStateSize];
  return ReadAt(table.idx.get(), bytes, kStateSize, kStateOffset) == kIsamOk &&
         memcmp(bytes, table.state_bytes, kStateSize) == 0;
}

isam_code Refresh(Table& table, bool locked) {
  if (table.current && StillCurrent(table)) return kIsamOk;
  Forget(table);
  isam_code code =
      ReadAt(table.idx.get(), table.state_bytes, kStateSize, kStateOffset);
  if (code != kIsamOk) return code;
  const bool valid = DecodeState(table.state_bytes, table.layout, &table.state);
  if (valid && table.state.phase == Phase::kRebuilding) return kIsamDamaged;
  if (valid && Trusted(table.state)) {
    uint8_t bytes[kRootSize];
    code = ReadAt(table.idx.get(), bytes, kRootSize, kRootOffset);
    if (code != kIsamOk) return code;
    table.current = AcceptRoot(table, bytes);
    if (table.current) return kIsamOk;
  }
  if (!locked) return kIsamCannotLock;
  code = RefreshFromRing(table, valid);
  if (code == kIsamOk)
    table.current = true;
  else
    table.overlay.reset();
  return code;
}

isam_code NeedOverlay(Table& table) {
  if (table.overlay) return kIsamOk;
  // In the middle of somebody's commit a page looks bad too, and that passes.
  if (table.ring_bad || !StillCurrent(table)) return kIsamDamaged;
  const isam_code code = Overlay::Load(
      table.dat.get(), table.layout, table.state.commit, true, &table.overlay);
  // Of thousands of bad slots each would have it read again.
  table.ring_bad = code == kIsamDamaged;
  return code;
}

}  // namespace isam
