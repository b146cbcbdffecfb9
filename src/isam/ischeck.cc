#include "isam/ischeck.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "isam/ishole.h"
#include "isam/iskey.h"
#include "isam/ispage.h"
#include "isam/issys.h"
#include "isam/istable.h"

namespace isam {
namespace {

class Checker {
 public:
  Checker(Table& table, Reporter& out)
      : table_(table),
        layout_(table.layout),
        out_(out),
        page_seen_(table.root.pages_used + 1) {}

  void Run() {
    ReadSlots();
    for (uint32_t i = 0; i < layout_.index_count; ++i) CheckIndex(i);
    CheckFreePages();
    CheckFreeSlots();
  }

 private:
  enum class SlotIs : uint8_t { kBad, kUsed, kFree };

  // Each record's keys are compared as the indexes are walked; here it is found
  // out what slots there are.
  void ReadSlots() {
    const Root& root = table_.root;
    slot_is_.assign(root.slots_used + 1, SlotIs::kBad);
    uint64_t used = 0;
    for (uint32_t n = 1; n <= root.slots_used; ++n) {
      if (GetSlot(table_, n) != kIsamOk) {
        out_.Say("slot %u: cannot be read or fails its checksum", n);
        continue;
      }
      const bool in_use = SlotInUse(table_.slot.data());
      slot_is_[n] = in_use ? SlotIs::kUsed : SlotIs::kFree;
      used += in_use ? 1 : 0;
      if (!SerialWasGiven(table_.slot.data(), root.next_serial))
        out_.Say("slot %u: serial number %u was never given", n,
                 SlotSerial(table_.slot.data()));
    }
    if (used != root.records)
      out_.Say("%llu records in use, the root page says %llu",
               static_cast<unsigned long long>(used),
               static_cast<unsigned long long>(root.records));
  }

  void CheckIndex(uint32_t index) {
    const Tree& tree = table_.root.tree[index];
    last_key_.clear();
    in_index_.assign(slot_is_.size(), false);
    if (tree.depth > 0) CheckPage(index, tree.page, tree.depth, nullptr);
    for (uint32_t n = 1; n < slot_is_.size(); ++n) {
      if (slot_is_[n] == SlotIs::kUsed && !in_index_[n])
        out_.Say("index %u: the record in slot %u is missing", index, n);
    }
  }

  // `low` is the least key that the page may hold; null for the leftmost pages.
  void CheckPage(uint32_t index, uint32_t number, uint32_t level,
                 const uint8_t* low) {
    const uint8_t* cached;
    if (!MarkPage(number) ||
        GetPage(table_, number, index, level, &cached) != kIsamOk) {
      out_.Say("index %u: page %u is damaged or used twice", index, number);
      return;
    }
    // A copy, as the pages below take the cached one's place.
    const std::vector<uint8_t> page(cached, cached + kPageSize);
    const Index& def = layout_.index[index];
    for (uint32_t i = 0; i < PageCount(page.data()); ++i) {
      const uint8_t* entry = PageEntry(page.data(), def, i);
      const uint8_t* least = i == 0 && level > 1 ? low : entry;
      if (i == 0 && low != nullptr && memcmp(least, low, def.key_length) < 0)
        out_.Say("index %u: page %u holds keys of its neighbour", index,
                 number);
      if (level > 1)
        CheckPage(index, EntryTarget(entry, def), level - 1, least);
      else
        CheckEntry(index, number, entry);
    }
  }

  void CheckEntry(uint32_t index, uint32_t page, const uint8_t* entry) {
    const Index& def = layout_.index[index];
    if (!last_key_.empty() &&
        memcmp(last_key_.data(), entry, def.key_length) >= 0)
      out_.Say("index %u: page %u is out of order", index, page);
    last_key_.assign(entry, entry + def.key_length);
    const uint32_t slot = EntryTarget(entry, def);
    if (slot == 0 || slot >= slot_is_.size() ||
        slot_is_[slot] != SlotIs::kUsed || in_index_[slot]) {
      out_.Say("index %u: page %u leads to slot %u, which is %s", index, page,
               slot,
               slot < slot_is_.size() && in_index_[slot] ? "there twice"
                                                         : "no record");
      return;
    }
    in_index_[slot] = true;
    uint8_t key[kIsamMaxKey];
    if (GetSlot(table_, slot) != kIsamOk) return;
    RecordKey(def, table_.slot.data() + kSlotHeader, key);
    if (memcmp(key, entry, def.key_length) != 0)
      out_.Say("index %u: the key of the record in slot %u is another", index,
               slot);
  }

  bool MarkPage(uint32_t number) {
    if (number == 0 || number >= page_seen_.size() || page_seen_[number])
      return false;
    page_seen_[number] = true;
    return true;
  }

  void CheckFreePages() {
    uint32_t number = table_.root.free_page;
    while (number != 0) {
      const uint8_t* page;
      if (!MarkPage(number) || GetFreePage(table_, number, &page) != kIsamOk) {
        out_.Say("free page %u is damaged or used twice", number);
        return;
      }
      number = PageNext(page);
    }
    for (uint32_t n = 1; n < page_seen_.size(); ++n)
      if (!page_seen_[n]) out_.Say("page %u is lost", n);
  }

  void CheckFreeSlots() {
    uint32_t number = table_.root.free_slot;
    while (number != 0) {
      if (number >= slot_is_.size() || slot_is_[number] != SlotIs::kFree ||
          GetSlot(table_, number) != kIsamOk) {
        out_.Say("free slot %u is damaged or used twice", number);
        return;
      }
      slot_is_[number] = SlotIs::kBad;
      number = SlotNext(table_.slot.data());
    }
    for (uint32_t n = 1; n < slot_is_.size(); ++n)
      if (slot_is_[n] == SlotIs::kFree) out_.Say("slot %u is lost", n);
  }

  Table& table_;
  const Layout& layout_;
  Reporter& out_;
  std::vector<bool> page_seen_;
  std::vector<SlotIs> slot_is_;
  std::vector<bool> in_index_;  // per slot, of the index being walked
  std::vector<uint8_t> last_key_;
};

// Both files must be of the same table and describe it alike.
void CheckHeaders(const Table& table, Reporter& out) {
  std::vector<uint8_t> idx(kHeaderSize), dat(kHeaderSize);
  Layout layout;
  if (ReadAt(table.idx.get(), idx.data(), kHeaderSize, 0) != kIsamOk ||
      ReadAt(table.dat.get(), dat.data(), kHeaderSize, 0) != kIsamOk ||
      DecodeHeader(dat.data(), FileKind::kData, &layout) != kIsamOk)
    out.Say("the header of the data file is damaged");
  else if (memcmp(idx.data() + header_at::kChecksum,
                  dat.data() + header_at::kChecksum,
                  kHeaderSize - header_at::kChecksum) != 0)
    out.Say("the two files are not of the same table");
  std::vector<uint8_t> fields(kFieldsSize);
  DODA decoded[kIsamMaxFields];
  if (ReadAt(table.dat.get(), fields.data(), kFieldsSize, kFieldsOffset) !=
          kIsamOk ||
      DecodeFields(fields.data(), table.layout.salt, decoded) < 0)
    out.Say("the field definitions are damaged");
}

// Whether the files have all slots and pages that the root page counts. Nobody
// looks for thousands of millions of slots that a few bytes speak of.
isam_code CheckSizes(const Table& table, Reporter& out, bool* good) {
  struct stat dat, idx;
  if (g_sys.stat(table.dat.get(), &dat) != 0 ||
      g_sys.stat(table.idx.get(), &idx) != 0)
    return kIsamIo;
  *good = SizesHold(table, dat, idx);
  if (!*good) {
    out.Say("the files are shorter than the root page says");
    return kIsamOk;
  }
  const Layout& layout = table.layout;
  Filled slots(table.dat.get(), layout.slot_offset(1), layout.slot_size());
  Filled pages(table.idx.get(), Layout::page_offset(1), kPageSize);
  bool all_slots, all_pages;
  isam_code code = slots.UpTo(table.root.slots_used, &all_slots);
  if (code == kIsamOk) code = pages.UpTo(table.root.pages_used, &all_pages);
  if (code != kIsamOk) return code;
  *good = all_slots && all_pages;
  if (!*good) out.Say("the files have holes where the root page counts data");
  return kIsamOk;
}

}  // namespace

void Reporter::Say(const char* format, ...) {
  any_ = true;
  if (report_ == nullptr) return;
  char line[200];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  report_(context_, line);
}

isam_code CheckTable(const std::string& name, isam_report report,
                     void* context) {
  std::unique_ptr<Table> table;
  if (isam_code code = OpenTable(name, false, &table)) return code;
  // One state for the whole check: commits wait.
  Lock lock;
  if (isam_code code = lock.TakeRead(table->idx.get())) return code;
  Reporter out(report, context);
  isam_code code = Refresh(*table, true);
  if (code == kIsamDamaged)
    out.Say("state, root and ring contradict themselves");
  if (code != kIsamOk) return code;
  CheckHeaders(*table, out);
  bool good;
  code = CheckSizes(*table, out, &good);
  if (code != kIsamOk) return code;
  if (good) Checker(*table, out).Run();
  return out.any() ? kIsamDamaged : kIsamOk;
}

}  // namespace isam
