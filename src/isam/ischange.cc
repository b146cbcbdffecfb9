#include "isam/ischange.h"

#include <cstring>

#include "isam/ispage.h"

namespace isam {
namespace {

constexpr uint32_t kLastPage = 0xfffffff0;  // leaves the offsets their range

}  // namespace

isam_code Change::Read(uint32_t number, uint32_t index, uint32_t level,
                       const uint8_t** page) {
  const auto it = pages.find(number);
  if (it == pages.end()) return GetPage(table, number, index, level, page);
  *page = it->second.get();
  return IsTreePage(*page, index, level) ? kIsamOk : kIsamDamaged;
}

isam_code Change::Edit(uint32_t number, uint32_t index, uint32_t level,
                       uint8_t** page) {
  const uint8_t* old;
  if (isam_code code = Read(number, index, level, &old)) return code;
  auto& mine = pages[number];
  if (!mine) {
    mine.reset(new uint8_t[kPageSize]);
    memcpy(mine.get(), old, kPageSize);
  }
  *page = mine.get();
  return kIsamOk;
}

isam_code Change::New(uint32_t index, uint32_t level, uint8_t** page) {
  uint32_t number = root.free_page;
  if (number == 0) {
    if (root.pages_used >= kLastPage) return kIsamTableFull;
    number = ++root.pages_used;
  } else {
    const auto it = pages.find(number);
    const uint8_t* old = it == pages.end() ? nullptr : it->second.get();
    if (old == nullptr) {
      if (isam_code code = GetFreePage(table, number, &old)) return code;
    }
    // In a damaged file the free list may lead to a page in use, or to one that
    // this change has taken from it already.
    if (TypeOfPage(old) != PageType::kFree || PageNext(old) > root.pages_used)
      return kIsamDamaged;
    root.free_page = PageNext(old);
  }
  auto& mine = pages[number];
  if (!mine) mine.reset(new uint8_t[kPageSize]);
  InitPage(mine.get(), number, level == 1 ? PageType::kLeaf : PageType::kInner,
           index, level);
  *page = mine.get();
  return kIsamOk;
}

void Change::Free(uint32_t number) {
  auto& mine = pages[number];
  if (!mine) mine.reset(new uint8_t[kPageSize]);
  InitPage(mine.get(), number, PageType::kFree, 0, 0);
  Put32(mine.get() + page_at::kNext, root.free_page);
  root.free_page = number;
}

isam_code Change::NewSlot(uint32_t* number) {
  if (root.free_slot == 0) {
    if (root.slots_used + 1 >= kSlotUsed) return kIsamTableFull;
    *number = ++root.slots_used;
    return kIsamOk;
  }
  *number = root.free_slot;
  if (isam_code code = GetSlot(table, *number)) return code;
  const uint32_t next = SlotNext(table.slot.data());
  if (next > root.slots_used) return kIsamDamaged;  // also kSlotUsed
  root.free_slot = next;
  return kIsamOk;
}

void Change::PutSlot(uint32_t number, const uint8_t* record) {
  auto& slot = slots[number];
  slot.assign(table.layout.slot_size(), 0);
  Put32(slot.data() + slot_at::kNext, kSlotUsed);
  memcpy(slot.data() + kSlotHeader, record, table.layout.record_length);
  SealSlot(slot.data(), number, table.layout);
}

void Change::FreeSlot(uint32_t number, uint32_t serial) {
  auto& slot = slots[number];
  slot.resize(table.layout.slot_size());
  ClearSlot(slot.data(), root.free_slot, serial, table.layout);
  SealSlot(slot.data(), number, table.layout);
  root.free_slot = number;
}

}  // namespace isam
