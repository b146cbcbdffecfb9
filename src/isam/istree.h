// Finding entries in the B-trees of a table, for reading.
//
// Pages have no links to their neighbours: a position keeps the way down from
// the root, so that a split changes no page beside it.
#ifndef ISAM_ISTREE_H_
#define ISAM_ISTREE_H_

#include <cstdint>

#include "isam/istable.h"

namespace isam {

struct TreePos {
  uint32_t index;
  uint32_t depth;
  // Per level, 0 the leaf: the page and which of its entries.
  uint32_t page[kMaxDepth];
  uint32_t at[kMaxDepth];
};

// All answer kIsamNotFound when there is no such entry.
//
// The first entry whose first `length` key bytes are not less than `key`.
[[nodiscard]] isam_code TreeSeek(Table& table, uint32_t index,
                                 const uint8_t* key, uint32_t length,
                                 TreePos* pos);
[[nodiscard]] isam_code TreeFirst(Table& table, uint32_t index, TreePos* pos);
[[nodiscard]] isam_code TreeLast(Table& table, uint32_t index, TreePos* pos);
[[nodiscard]] isam_code TreeNext(Table& table, TreePos* pos);
[[nodiscard]] isam_code TreePrev(Table& table, TreePos* pos);

// The entry at `pos`, valid until the next call for a page.
[[nodiscard]] isam_code TreeEntry(Table& table, const TreePos& pos,
                                  const uint8_t** entry);

}  // namespace isam

#endif  // ISAM_ISTREE_H_
