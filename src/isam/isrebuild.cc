// Making all indexes anew from the records.
//
// The state block says "rebuilding" from before the first write until
// everything is on disk. Whoever meets that answers kIsamDamaged, after a
// restart too, so a rebuild that died or failed is simply done again: the
// records in use are only read. What cannot be read ends it, since that may
// pass; only what was read and is damaged is given up.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "isam/isbytes.h"
#include "isam/ischeck.h"
#include "isam/iscommit.h"
#include "isam/iscreate.h"
#include "isam/ishole.h"
#include "isam/iskey.h"
#include "isam/ispage.h"
#include "isam/issys.h"
#include "isam/istable.h"

namespace isam {
namespace {

constexpr uint32_t kLargestHole = 1 << 20;  // bytes that are filled anyway

struct Kept {
  uint32_t serial;
  uint32_t slot;
  bool dropped;
};

void AppendEntry(const Index& def, const uint8_t* key, uint32_t target,
                 std::vector<uint8_t>* entries) {
  entries->insert(entries->end(), key, key + def.key_length);
  entries->resize(entries->size() + kTargetSize);
  Put32(entries->data() + entries->size() - kTargetSize, target);
}

class Rebuilder {
 public:
  Rebuilder(const std::string& name, Reporter& out) : name_(name), out_(out) {}

  isam_code Run() {
    isam_code code = OpenFiles();
    if (code == kIsamOk) code = lock_.TakeWriter(idx_.get());
    if (code == kIsamOk) code = SettleHeaders();
    if (code == kIsamOk) code = CheckFields();
    if (code == kIsamOk) code = MeasureSlots();
    if (code == kIsamOk) code = FinishLastCommit();
    if (code == kIsamOk) code = CheckHoles();
    if (code == kIsamOk) code = WriteState(Phase::kRebuilding);
    if (code == kIsamOk) code = WriteHeaders();
    if (code == kIsamOk) code = ReadSlots();
    for (uint32_t i = 0; code == kIsamOk && i < layout_.index_count; ++i)
      code = DropDuplicates(i);
    if (code == kIsamOk) code = WriteFreeSlots();
    for (uint32_t i = 0; code == kIsamOk && i < layout_.index_count; ++i)
      code = WriteIndex(i);
    if (code == kIsamOk) code = WriteRoot();
    if (code == kIsamOk) code = SyncFile(dat_.get());
    if (code == kIsamOk) code = SyncFile(idx_.get());
    if (code == kIsamOk) code = SyncFolder(name_);
    if (code == kIsamOk) code = WriteState(Phase::kApplied);
    return code;
  }

 private:
  isam_code OpenFiles() {
    dat_.reset(g_sys.open((name_ + ".dat").c_str(), O_RDWR, 0));
    if (!dat_.valid()) return CodeFromErrno();
    idx_.reset(
        g_sys.open((name_ + ".idx").c_str(), O_RDWR | O_CREAT, FileMode()));
    return idx_.valid() ? kIsamOk : CodeFromErrno();
  }

  // The two headers say the same; one of them is enough. The data file's counts
  // if they differ, for its slots are sealed with its salt.
  isam_code SettleHeaders() {
    uint8_t dat[kHeaderSize], idx[kHeaderSize];
    Layout of_idx;
    const bool dat_good =
        ReadAt(dat_.get(), dat, kHeaderSize, 0) == kIsamOk &&
        DecodeHeader(dat, FileKind::kData, &layout_) == kIsamOk;
    idx_good_ = ReadAt(idx_.get(), idx, kHeaderSize, 0) == kIsamOk &&
                DecodeHeader(idx, FileKind::kIndex, &of_idx) == kIsamOk &&
                (!dat_good || of_idx.salt == layout_.salt);
    if (dat_good) return kIsamOk;
    if (!idx_good_) return kIsamDamaged;
    layout_ = of_idx;
    out_.Say("the header of the data file was damaged");
    return kIsamOk;
  }

  // Nothing but the data file tells what the records mean: no index helps those
  // who cannot read them.
  isam_code CheckFields() {
    uint8_t bytes[kFieldsSize];
    DODA fields[kIsamMaxFields];
    if (ReadAt(dat_.get(), bytes, kFieldsSize, kFieldsOffset) == kIsamOk &&
        DecodeFields(bytes, layout_.salt, fields) >= 0)
      return kIsamOk;
    out_.Say("the field definitions are damaged");
    return kIsamDamaged;
  }

  isam_code MeasureSlots() {
    struct stat st;
    if (g_sys.stat(dat_.get(), &st) != 0) return kIsamIo;
    const off_t bytes = std::max<off_t>(st.st_size - layout_.slot_offset(1), 0);
    root_.slots_capacity = static_cast<uint32_t>(
        std::min<off_t>(bytes / layout_.slot_size(), kSlotUsed - 1));
    return kIsamOk;
  }

  // Calls `use(number)` for each slot that does not lie in a hole, while it
  // answers kIsamOk.
  template <typename Use>
  isam_code ForEachSlot(Use use) {
    Filled slots(dat_.get(), layout_.slot_offset(1), layout_.slot_size());
    for (uint32_t next = 1;;) {
      uint32_t number;
      isam_code code = slots.From(next, &number);
      if (code != kIsamOk || number > root_.slots_capacity) return code;
      code = use(number);
      if (code != kIsamOk) return code;
      next = number + 1;
    }
  }

  // Every slot below the last record becomes a free one: a hole that a few
  // bytes make as large as they like must not be filled. What a crash or a
  // copy without zeros leaves is less.
  isam_code CheckHoles() {
    uint32_t filled = 0, last = 0;
    const isam_code code = ForEachSlot([&](uint32_t number) {
      ++filled;
      last = number;
      return kIsamOk;
    });
    if (code != kIsamOk) return code;
    const uint32_t holes = last - filled;
    if (holes <= filled || holes <= kLargestHole / layout_.slot_size())
      return kIsamOk;
    out_.Say("most of the data file is a hole");
    return kIsamDamaged;
  }

  // The slots in place may be older than the ring; then they are brought up to
  // date first, if the ring can still be read. That has to be on disk before
  // the ring is given up. A rebuild that died has done it, and may have left
  // half a ring: of that only the serial number still counts.
  isam_code FinishLastCommit() {
    uint8_t bytes[kStateSize];
    State state = {};
    isam_code code = ReadAt(idx_.get(), bytes, kStateSize, kStateOffset);
    if (code == kIsamIo) return code;
    if (code == kIsamOk && DecodeState(bytes, layout_, &state)) {
      commit_ = state.commit;
      changes_ = state.changes;
    }
    std::unique_ptr<Overlay> ring;
    code = Overlay::Load(dat_.get(), layout_, 0, false, &ring);
    if (code == kIsamIo) return code;
    if (code != kIsamOk || ring->commit() == 0) return kIsamOk;
    commit_ = std::max(commit_, ring->commit());
    Root root;
    const Image* image = ring->Find(ImageKind::kRoot, 0);
    if (image == nullptr || !DecodeRoot(image->bytes, layout_, &root))
      return kIsamOk;
    next_serial_ = root.next_serial;
    if (state.phase == Phase::kRebuilding) return kIsamOk;
    for (const auto& [key, slot] : ring->images()) {
      if (key.first != ImageKind::kSlot || key.second > root.slots_used ||
          key.second > root_.slots_capacity)
        continue;
      code = WriteAt(dat_.get(), slot.bytes, slot.length,
                     layout_.slot_offset(key.second));
      if (code != kIsamOk) return code;
    }
    return SyncFile(dat_.get());
  }

  isam_code WriteState(Phase phase) {
    State state = {};
    state.phase = phase;
    state.commit = commit_ + 1;
    state.changes = ++changes_;
    state.half_first = state.commit;
    state.entry_length = entry_length_;
    memcpy(state.boot_id, g_sys.boot_id(), sizeof state.boot_id);
    uint8_t bytes[kStateSize];
    EncodeState(state, layout_.salt, bytes);
    Lock lock;
    if (isam_code code = lock.TakeApply(idx_.get())) return code;
    if (isam_code code = WriteAt(idx_.get(), bytes, kStateSize, kStateOffset))
      return code;
    return SyncFile(idx_.get());
  }

  // A header that is as it should be is left alone: half written it is none.
  isam_code WriteHeader(int fd, FileKind kind) {
    uint8_t there[kHeaderSize], bytes[kHeaderSize];
    EncodeHeader(layout_, kind, bytes);
    if (ReadAt(fd, there, kHeaderSize, 0) == kIsamOk &&
        memcmp(there, bytes, kHeaderSize) == 0)
      return kIsamOk;
    return WriteAt(fd, bytes, kHeaderSize, 0);
  }

  isam_code WriteHeaders() {
    if (!idx_good_) {
      out_.Say("the index file was missing or damaged");
      if (g_sys.chmod(idx_.get(), FileMode()) != 0) return CodeFromErrno();
    }
    if (isam_code code = WriteHeader(idx_.get(), FileKind::kIndex)) return code;
    return WriteHeader(dat_.get(), FileKind::kData);
  }

  isam_code ReadSlot(uint32_t number) {
    slot_.resize(layout_.slot_size());
    if (isam_code code = ReadAt(dat_.get(), slot_.data(), slot_.size(),
                                layout_.slot_offset(number)))
      return code;
    const std::vector<uint8_t> read = slot_;
    SealSlot(slot_.data(), number, layout_);
    // A number that was never given would leave none to give.
    return read == slot_ && SerialWasGiven(slot_.data(), kLastSerial + 1)
               ? kIsamOk
               : kIsamDamaged;
  }

  isam_code TakeSlot(uint32_t n) {
    const isam_code code = ReadSlot(n);
    if (code == kIsamIo) return code;
    const bool good = code == kIsamOk;
    const bool never_used =
        std::all_of(slot_.begin() + slot_at::kNext, slot_.end(),
                    [](uint8_t b) { return b == 0; });
    if (!good && never_used) return kIsamOk;
    root_.slots_used = n;
    if (!good) {
      out_.Say("the record in slot %u is damaged and was left out", n);
      return kIsamOk;
    }
    const uint32_t serial = SlotSerial(slot_.data());
    next_serial_ = std::max(next_serial_, serial + 1);
    if (SlotInUse(slot_.data())) kept_.push_back({serial, n, false});
    return kIsamOk;
  }

  isam_code ReadSlots() {
    const isam_code code = ForEachSlot([&](uint32_t n) { return TakeSlot(n); });
    if (code != kIsamOk) return code;
    std::sort(kept_.begin(), kept_.end(), [](const Kept& a, const Kept& b) {
      return a.serial != b.serial ? a.serial < b.serial : a.slot < b.slot;
    });
    return kIsamOk;
  }

  // The keys of index `index`, in order; equal ones in the order of kept_.
  isam_code SortedKeys(uint32_t index, std::vector<uint8_t>* keys,
                       std::vector<uint32_t>* order) {
    const Index& def = layout_.index[index];
    keys->resize(kept_.size() * def.key_length);
    order->clear();
    for (uint32_t i = 0; i < kept_.size(); ++i) {
      if (kept_[i].dropped) continue;
      if (isam_code code = ReadSlot(kept_[i].slot)) return code;
      RecordKey(def, slot_.data() + kSlotHeader,
                keys->data() + size_t{i} * def.key_length);
      order->push_back(i);
    }
    std::stable_sort(order->begin(), order->end(), [&](uint32_t a, uint32_t b) {
      return memcmp(keys->data() + size_t{a} * def.key_length,
                    keys->data() + size_t{b} * def.key_length,
                    def.key_length) < 0;
    });
    return kIsamOk;
  }

  isam_code DropDuplicates(uint32_t index) {
    const Index& def = layout_.index[index];
    if (def.duplicates) return kIsamOk;
    std::vector<uint8_t> keys;
    std::vector<uint32_t> order;
    if (isam_code code = SortedKeys(index, &keys, &order)) return code;
    const auto key = [&](uint32_t i) {
      return keys.data() + size_t{i} * def.key_length;
    };
    size_t first = 0;
    for (size_t i = 1; i < order.size(); ++i) {
      if (memcmp(key(order[first]), key(order[i]), def.key_length) != 0) {
        first = i;
        continue;
      }
      kept_[order[i]].dropped = true;
      out_.Say("record %u has a key of record %u and was left out",
               kept_[order[i]].serial, kept_[order[first]].serial);
    }
    return kIsamOk;
  }

  // Every slot that holds no record goes to the free list, the lowest first.
  isam_code WriteFreeSlots() {
    std::vector<bool> used(root_.slots_used + 1);
    for (const Kept& kept : kept_) {
      if (kept.dropped) continue;
      used[kept.slot] = true;
      ++root_.records;
    }
    for (uint32_t n = root_.slots_used; n > 0; --n) {
      if (used[n]) continue;
      const isam_code read = ReadSlot(n);
      if (read == kIsamIo) return read;
      const uint32_t serial = read == kIsamOk ? SlotSerial(slot_.data()) : 0;
      ClearSlot(slot_.data(), root_.free_slot, serial, layout_);
      SealSlot(slot_.data(), n, layout_);
      if (isam_code code = WriteAt(dat_.get(), slot_.data(), slot_.size(),
                                   layout_.slot_offset(n)))
        return code;
      root_.free_slot = n;
    }
    return kIsamOk;
  }

  // Writes `entries` as pages of one level and gives back the entries for the
  // level above.
  isam_code WriteLevel(uint32_t index, uint32_t level,
                       std::vector<uint8_t>* entries) {
    const Index& def = layout_.index[index];
    // Room for a few more keys on each page, or the next adds would split all.
    const uint32_t fill = def.capacity() - def.capacity() / 8;
    std::vector<uint8_t> above;
    uint8_t page[kPageSize];
    for (size_t at = 0; at < entries->size();) {
      const uint8_t* first = entries->data() + at;
      const size_t bytes =
          std::min(size_t{fill} * def.entry_size(), entries->size() - at);
      const uint32_t number = ++root_.pages_used;
      InitPage(page, number, level == 1 ? PageType::kLeaf : PageType::kInner,
               index, level);
      memcpy(page + kPageHeader, first, bytes);
      SetPageCount(page, static_cast<uint32_t>(bytes / def.entry_size()));
      SealPage(page, layout_, commit_ + 1);
      if (isam_code code =
              WriteAt(idx_.get(), page, kPageSize, layout_.page_offset(number)))
        return code;
      AppendEntry(def, first, number, &above);
      at += bytes;
    }
    *entries = std::move(above);
    return kIsamOk;
  }

  isam_code WriteIndex(uint32_t index) {
    const Index& def = layout_.index[index];
    std::vector<uint8_t> keys, entries;
    std::vector<uint32_t> order;
    if (isam_code code = SortedKeys(index, &keys, &order)) return code;
    if (order.empty()) return kIsamOk;
    for (uint32_t i : order) {
      const uint8_t* key = keys.data() + size_t{i} * def.key_length;
      AppendEntry(def, key, kept_[i].slot, &entries);
    }
    uint32_t level = 0;
    do {
      if (level == kMaxDepth) return kIsamTableFull;
      if (isam_code code = WriteLevel(index, ++level, &entries)) return code;
    } while (entries.size() > def.entry_size());
    root_.tree[index] = {root_.pages_used, level};
    return kIsamOk;
  }

  // The ring keeps one entry, the new root page: it says which commit is last.
  // The index file ends behind its last page; without one it was too short.
  isam_code WriteRoot() {
    root_.commit = commit_ + 1;
    root_.next_serial = next_serial_;
    root_.pages_capacity = root_.pages_used;
    uint8_t bytes[kRootSize];
    EncodeRoot(root_, layout_.salt, bytes);
    Entry entry(layout_, root_.commit);
    entry.Add(ImageKind::kRoot, 0, bytes, kRootSize);
    entry_length_ = entry.size();
    entry.Seal(root_.commit);
    if (g_sys.truncate(idx_.get(), layout_.page_offset(root_.pages_used + 1)))
      return CodeFromErrno();
    isam_code code = WriteAt(idx_.get(), bytes, kRootSize, kRootOffset);
    if (code == kIsamOk)
      code = WriteZeros(dat_.get(), kRingOffset, layout_.slot_offset(1));
    if (code == kIsamOk)
      code =
          WriteAt(dat_.get(), entry.bytes().data(), entry.size(), kRingOffset);
    return code;
  }

  const std::string& name_;
  Reporter& out_;
  UniqueFd dat_, idx_;
  Lock lock_;
  Layout layout_;
  bool idx_good_ = false;
  uint64_t commit_ = 0, changes_ = 0;
  uint32_t next_serial_ = 1, entry_length_ = 0;
  Root root_ = {};
  std::vector<Kept> kept_;  // records by serial number
  std::vector<uint8_t> slot_;
};

}  // namespace

isam_code RebuildTable(const std::string& name, isam_report report,
                       void* context) {
  Reporter out(report, context);
  return Rebuilder(name, out).Run();
}

}  // namespace isam
