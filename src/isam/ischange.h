// One change in the making: new contents of pages and slots, in memory only.
// Thrown away unless Commit (iscommit.h) writes it. The table is not touched.
#ifndef ISAM_ISCHANGE_H_
#define ISAM_ISCHANGE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "isam/istable.h"

namespace isam {

class Change {
 public:
  // `table` is up to date and its writer lock held, for as long as this lives.
  explicit Change(Table& t) : table(t), root(t.root) {}

  // A page as this change sees it; valid until the next call.
  [[nodiscard]] isam_code Read(uint32_t number, uint32_t index, uint32_t level,
                               const uint8_t** page);
  // The same to be altered; valid as long as the change.
  [[nodiscard]] isam_code Edit(uint32_t number, uint32_t index, uint32_t level,
                               uint8_t** page);
  // A free or new page, empty.
  [[nodiscard]] isam_code New(uint32_t index, uint32_t level, uint8_t** page);
  void Free(uint32_t number);

  [[nodiscard]] isam_code NewSlot(uint32_t* number);
  void PutSlot(uint32_t number, const uint8_t* record);
  void FreeSlot(uint32_t number, uint32_t serial);

  Table& table;
  Root root;
  std::map<uint32_t, std::unique_ptr<uint8_t[]>> pages;
  std::map<uint32_t, std::vector<uint8_t>> slots;
};

// Put the key (key_length bytes) of the record in `slot` into tree `index`, or
// take it out. kIsamDuplicate, kIsamTableFull; kIsamDamaged when the key to be
// removed is not there.
[[nodiscard]] isam_code TreeInsert(Change& change, uint32_t index,
                                   const uint8_t* key, uint32_t slot);
[[nodiscard]] isam_code TreeRemove(Change& change, uint32_t index,
                                   const uint8_t* key);

}  // namespace isam

#endif  // ISAM_ISCHANGE_H_
