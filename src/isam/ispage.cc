#include "isam/ispage.h"

#include <cstring>

#include "isam/issys.h"

namespace isam {
namespace {

uint64_t PageSum(const uint8_t* page, const Layout& layout) {
  return Checksum(page + page_at::kCommit,
                  PageBytes(page, layout) - page_at::kCommit,
                  layout.salt ^ PageNumber(page));
}

// Whether the bytes are page `number`, as it was written, and not newer than
// the state that the reader goes by.
bool GoodPage(const uint8_t* page, uint32_t number, const Table& table) {
  const Layout& layout = table.layout;
  if (PageNumber(page) != number || PageCommit(page) > table.root.commit)
    return false;
  if (TypeOfPage(page) != PageType::kFree) {
    const uint32_t index = PageIndex(page);
    if (index >= layout.index_count || PageCount(page) == 0 ||
        PageCount(page) > layout.index[index].capacity())
      return false;
  }
  return Get64(page + page_at::kChecksum) == PageSum(page, layout);
}

bool FromOverlay(const Table& table, ImageKind kind, uint32_t number,
                 uint8_t* out) {
  const Image* image =
      table.overlay ? table.overlay->Find(kind, number) : nullptr;
  if (image == nullptr) return false;
  memcpy(out, image->bytes, image->length);
  return true;
}

isam_code ReadPage(Table& table, uint32_t number, uint8_t* page) {
  if (FromOverlay(table, ImageKind::kPage, number, page))
    return GoodPage(page, number, table) ? kIsamOk : kIsamDamaged;
  isam_code code = ReadAt(table.idx.get(), page, kPageSize,
                          table.layout.page_offset(number));
  if (code == kIsamOk && GoodPage(page, number, table)) return kIsamOk;
  if (code == kIsamIo) return code;
  code = NeedOverlay(table);
  if (code != kIsamOk) return code;
  return FromOverlay(table, ImageKind::kPage, number, page) &&
                 GoodPage(page, number, table)
             ? kIsamOk
             : kIsamDamaged;
}

isam_code CachedPage(Table& table, uint32_t number, const uint8_t** page) {
  *page = table.cache.Find(number);
  if (*page != nullptr) return kIsamOk;
  if (number == 0 || number > table.root.pages_used) return kIsamDamaged;
  uint8_t* room = table.cache.Room(number);
  const isam_code code = ReadPage(table, number, room);
  if (code != kIsamOk) table.cache.Drop(number);
  *page = room;
  return code;
}

uint64_t SlotSum(const uint8_t* slot, uint32_t number, const Layout& layout) {
  return Checksum(slot + slot_at::kNext, layout.slot_size() - slot_at::kNext,
                  layout.salt ^ ~number);
}

}  // namespace

void InitPage(uint8_t* page, uint32_t number, PageType type, uint32_t index,
              uint32_t level) {
  memset(page, 0, kPageSize);
  Put32(page + page_at::kNumber, number);
  page[page_at::kType] = static_cast<uint8_t>(type);
  page[page_at::kIndex] = static_cast<uint8_t>(index);
  page[page_at::kLevel] = static_cast<uint8_t>(level);
}

void SealPage(uint8_t* page, const Layout& layout, uint64_t commit) {
  Put64(page + page_at::kCommit, commit);
  Put64(page + page_at::kChecksum, PageSum(page, layout));
}

uint32_t LowerBound(const uint8_t* page, const Index& index, uint32_t from,
                    const uint8_t* key, uint32_t length) {
  uint32_t low = from, high = PageCount(page);
  while (low < high) {
    const uint32_t middle = (low + high) / 2;
    if (memcmp(PageEntry(page, index, middle), key, length) < 0)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

uint32_t ChildFor(const uint8_t* page, const Index& index, const uint8_t* key,
                  uint32_t length) {
  const uint32_t at = LowerBound(page, index, 1, key, length);
  // A whole key that equals the first of a child is in that child. Of a shorter
  // one there may be more at the end of the child before.
  const bool in_this = length == index.key_length && at < PageCount(page) &&
                       memcmp(PageEntry(page, index, at), key, length) == 0;
  return in_this ? at : at - 1;
}

isam_code GetPage(Table& table, uint32_t number, uint32_t index, uint32_t level,
                  const uint8_t** page) {
  if (isam_code code = CachedPage(table, number, page)) return code;
  // The level falls by one with each step down, so no circle of pages can lead
  // a reader on for ever.
  return IsTreePage(*page, index, level) ? kIsamOk : kIsamDamaged;
}

isam_code GetFreePage(Table& table, uint32_t number, const uint8_t** page) {
  if (isam_code code = CachedPage(table, number, page)) return code;
  return TypeOfPage(*page) == PageType::kFree ? kIsamOk : kIsamDamaged;
}

void ClearSlot(uint8_t* slot, uint32_t next, uint32_t serial,
               const Layout& layout) {
  memset(slot, 0, layout.slot_size());
  Put32(slot + slot_at::kNext, next);
  Put32(slot + slot_at::kRecord, serial);
}

void SealSlot(uint8_t* slot, uint32_t number, const Layout& layout) {
  Put64(slot + slot_at::kChecksum, SlotSum(slot, number, layout));
}

isam_code GetSlot(Table& table, uint32_t number) {
  if (number == 0 || number > table.root.slots_used) return kIsamDamaged;
  const Layout& layout = table.layout;
  table.slot.resize(layout.slot_size());
  uint8_t* slot = table.slot.data();
  const auto good = [&] {
    return Get64(slot + slot_at::kChecksum) == SlotSum(slot, number, layout);
  };
  if (FromOverlay(table, ImageKind::kSlot, number, slot))
    return good() ? kIsamOk : kIsamDamaged;
  isam_code code = ReadAt(table.dat.get(), slot, layout.slot_size(),
                          layout.slot_offset(number));
  if (code == kIsamOk && good()) return kIsamOk;
  if (code == kIsamIo) return code;
  code = NeedOverlay(table);
  if (code != kIsamOk) return code;
  return FromOverlay(table, ImageKind::kSlot, number, slot) && good()
             ? kIsamOk
             : kIsamDamaged;
}

}  // namespace isam
