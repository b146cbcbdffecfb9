// Pages and slots as bytes, and the checked way to get them from a table.
#ifndef ISAM_ISPAGE_H_
#define ISAM_ISPAGE_H_

#include <cstdint>

#include "isam/isbytes.h"
#include "isam/istable.h"

namespace isam {

inline uint64_t PageCommit(const uint8_t* page) {
  return Get64(page + page_at::kCommit);
}
inline uint32_t PageNumber(const uint8_t* page) {
  return Get32(page + page_at::kNumber);
}
inline PageType TypeOfPage(const uint8_t* page) {
  return static_cast<PageType>(page[page_at::kType]);
}
inline uint32_t PageIndex(const uint8_t* page) { return page[page_at::kIndex]; }
inline uint32_t PageLevel(const uint8_t* page) { return page[page_at::kLevel]; }
inline uint32_t PageCount(const uint8_t* page) {
  return Get16(page + page_at::kCount);
}
inline uint32_t PageNext(const uint8_t* page) {
  return Get32(page + page_at::kNext);
}

inline void SetPageCount(uint8_t* page, uint32_t count) {
  Put16(page + page_at::kCount, count);
}
inline const uint8_t* PageEntry(const uint8_t* page, const Index& index,
                                uint32_t at) {
  return page + kPageHeader + at * index.entry_size();
}
inline uint8_t* PageEntry(uint8_t* page, const Index& index, uint32_t at) {
  return page + kPageHeader + at * index.entry_size();
}
// The slot (leaf) or page (inner page) that an entry leads to.
inline uint32_t EntryTarget(const uint8_t* entry, const Index& index) {
  return Get32(entry + index.key_length);
}

// The bytes of a page that count; the rest of it is not looked at.
inline uint32_t PageBytes(const uint8_t* page, const Layout& layout) {
  if (TypeOfPage(page) == PageType::kFree) return kPageHeader;
  return kPageHeader +
         PageCount(page) * layout.index[PageIndex(page)].entry_size();
}

// Whether the page is one of tree `index` at `level`.
inline bool IsTreePage(const uint8_t* page, uint32_t index, uint32_t level) {
  const PageType type = level == 1 ? PageType::kLeaf : PageType::kInner;
  return TypeOfPage(page) == type && PageIndex(page) == index &&
         PageLevel(page) == level;
}

void InitPage(uint8_t* page, uint32_t number, PageType type, uint32_t index,
              uint32_t level);
void SealPage(uint8_t* page, const Layout& layout, uint64_t commit);

// The first entry of the page, from `from` on, whose first `length` key bytes
// are not less than `key`; the count when there is none.
uint32_t LowerBound(const uint8_t* page, const Index& index, uint32_t from,
                    const uint8_t* key, uint32_t length);
// Which child of an inner page leads to the first such entry.
uint32_t ChildFor(const uint8_t* page, const Index& index, const uint8_t* key,
                  uint32_t length);

// Page `number` of tree `index` at `level`; valid until the next call. A page
// that fails its checks is taken from the ring, or the answer is kIsamDamaged.
[[nodiscard]] isam_code GetPage(Table& table, uint32_t number, uint32_t index,
                                uint32_t level, const uint8_t** page);
[[nodiscard]] isam_code GetFreePage(Table& table, uint32_t number,
                                    const uint8_t** page);

// A slot that holds zeros from now on, but for the serial number that it had
// and the next free one.
void ClearSlot(uint8_t* slot, uint32_t next, uint32_t serial,
               const Layout& layout);
void SealSlot(uint8_t* slot, uint32_t number, const Layout& layout);
// The next free slot, or kSlotUsed.
inline uint32_t SlotNext(const uint8_t* slot) {
  return Get32(slot + slot_at::kNext);
}
inline bool SlotInUse(const uint8_t* slot) {
  return SlotNext(slot) == kSlotUsed;
}
inline uint32_t SlotSerial(const uint8_t* slot) {
  return Get32(slot + kSlotHeader);
}
// Whether the slot's serial number was given before `next`. A record has one; a
// free slot may never have held a record.
inline bool SerialWasGiven(const uint8_t* slot, uint32_t next) {
  return SlotSerial(slot) < next && (SlotSerial(slot) > 0 || !SlotInUse(slot));
}
// Reads slot `number`, used or free, into table.slot.
[[nodiscard]] isam_code GetSlot(Table& table, uint32_t number);

}  // namespace isam

#endif  // ISAM_ISPAGE_H_
