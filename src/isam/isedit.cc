// Inserting into and removing from the B-trees. Leaf and inner pages have
// entries of the same form and size, so both are edited by the same functions.
#include <cstring>

#include "isam/ischange.h"
#include "isam/ispage.h"

namespace isam {
namespace {

// The way from the root to the leaf where a key belongs.
struct Way {
  uint32_t depth;
  uint32_t page[kMaxDepth];  // per level, 0 the leaf
  uint32_t at[kMaxDepth];    // in an inner page: the child taken
  bool rightmost;            // each was the last child of its page
};

isam_code FindWay(Change& change, uint32_t index, const uint8_t* key,
                  Way* way) {
  const Index& def = change.table.layout.index[index];
  const Tree& tree = change.root.tree[index];
  way->depth = tree.depth;
  way->rightmost = true;
  uint32_t number = tree.page;
  for (uint32_t level = tree.depth; level-- > 0;) {
    const uint8_t* page;
    if (isam_code code = change.Read(number, index, level + 1, &page))
      return code;
    way->page[level] = number;
    if (level == 0) {
      way->at[0] = LowerBound(page, def, 0, key, def.key_length);
      return kIsamOk;
    }
    way->at[level] = ChildFor(page, def, key, def.key_length);
    way->rightmost &= way->at[level] + 1 == PageCount(page);
    number = EntryTarget(PageEntry(page, def, way->at[level]), def);
  }
  return kIsamOk;
}

void InsertAt(uint8_t* page, const Index& def, uint32_t at,
              const uint8_t* entry) {
  const uint32_t count = PageCount(page);
  uint8_t* place = PageEntry(page, def, at);
  memmove(place + def.entry_size(), place, (count - at) * def.entry_size());
  memcpy(place, entry, def.entry_size());
  SetPageCount(page, count + 1);
}

void RemoveAt(uint8_t* page, const Index& def, uint32_t at) {
  const uint32_t count = PageCount(page);
  uint8_t* place = PageEntry(page, def, at);
  memmove(place, place + def.entry_size(), (count - at - 1) * def.entry_size());
  SetPageCount(page, count - 1);
}

// Inserts into a full page, moving its upper half to the empty page `right`.
// Where keys arrive in ascending order (serial numbers) the full page is left
// full, and the new entry alone moves on.
void SplitInsert(uint8_t* page, uint8_t* right, const Index& def, uint32_t at,
                 const uint8_t* entry, bool ascending) {
  const uint32_t count = PageCount(page);
  const uint32_t keep = ascending ? count : (count + 1) / 2;
  memcpy(PageEntry(right, def, 0), PageEntry(page, def, keep),
         (count - keep) * def.entry_size());
  SetPageCount(right, count - keep);
  SetPageCount(page, keep);
  if (at < keep || (at == keep && !ascending))
    InsertAt(page, def, at, entry);
  else
    InsertAt(right, def, at - keep, entry);
}

void MakeEntry(uint8_t* entry, const Index& def, const uint8_t* key,
               uint32_t target) {
  memcpy(entry, key, def.key_length);
  Put32(entry + def.key_length, target);
}

isam_code NewRoot(Change& change, uint32_t index, const uint8_t* first,
                  const uint8_t* second) {
  Tree& tree = change.root.tree[index];
  const Index& def = change.table.layout.index[index];
  if (tree.depth == kMaxDepth) return kIsamTableFull;
  uint8_t* page;
  if (isam_code code = change.New(index, tree.depth + 1, &page)) return code;
  InsertAt(page, def, 0, first);
  if (second != nullptr) InsertAt(page, def, 1, second);
  tree = {PageNumber(page), tree.depth + 1};
  return kIsamOk;
}

// Inserts at the bottom of `way`; a page that splits hands an entry for its new
// right half to the level above.
isam_code InsertAlong(Change& change, uint32_t index, const Way& way,
                      uint8_t* entry) {
  const Index& def = change.table.layout.index[index];
  for (uint32_t level = 0;; ++level) {
    const uint32_t at = way.at[level] + (level > 0 ? 1 : 0);
    uint8_t* page;
    isam_code code = change.Edit(way.page[level], index, level + 1, &page);
    if (code != kIsamOk) return code;
    if (PageCount(page) < def.capacity()) {
      InsertAt(page, def, at, entry);
      return kIsamOk;
    }
    uint8_t* right;
    code = change.New(index, level + 1, &right);
    if (code != kIsamOk) return code;
    SplitInsert(page, right, def, at, entry,
                way.rightmost && at == PageCount(page));
    MakeEntry(entry, def, PageEntry(right, def, 0), PageNumber(right));
    if (level + 1 == way.depth) {
      uint8_t left[kIsamMaxKey + kTargetSize];
      MakeEntry(left, def, PageEntry(page, def, 0), PageNumber(page));
      return NewRoot(change, index, left, entry);
    }
  }
}

// A root with one child has no work to do: the child takes its place.
isam_code LowerRoot(Change& change, uint32_t index) {
  Tree& tree = change.root.tree[index];
  const Index& def = change.table.layout.index[index];
  while (tree.depth > 1) {
    const uint8_t* page;
    isam_code code = change.Read(tree.page, index, tree.depth, &page);
    if (code != kIsamOk) return code;
    if (PageCount(page) > 1) break;
    const uint32_t child = EntryTarget(PageEntry(page, def, 0), def);
    change.Free(tree.page);
    tree = {child, tree.depth - 1};
  }
  return kIsamOk;
}

}  // namespace

isam_code TreeInsert(Change& change, uint32_t index, const uint8_t* key,
                     uint32_t slot) {
  const Index& def = change.table.layout.index[index];
  uint8_t entry[kIsamMaxKey + kTargetSize];
  MakeEntry(entry, def, key, slot);
  if (change.root.tree[index].depth == 0)
    return NewRoot(change, index, entry, nullptr);
  Way way;
  if (isam_code code = FindWay(change, index, key, &way)) return code;
  const uint8_t* leaf;
  if (isam_code code = change.Read(way.page[0], index, 1, &leaf)) return code;
  if (way.at[0] < PageCount(leaf) &&
      memcmp(PageEntry(leaf, def, way.at[0]), key, def.key_length) == 0)
    return kIsamDuplicate;
  return InsertAlong(change, index, way, entry);
}

isam_code TreeRemove(Change& change, uint32_t index, const uint8_t* key) {
  const Index& def = change.table.layout.index[index];
  if (change.root.tree[index].depth == 0) return kIsamDamaged;
  Way way;
  if (isam_code code = FindWay(change, index, key, &way)) return code;
  const uint8_t* leaf;
  if (isam_code code = change.Read(way.page[0], index, 1, &leaf)) return code;
  if (way.at[0] == PageCount(leaf) ||
      memcmp(PageEntry(leaf, def, way.at[0]), key, def.key_length) != 0)
    return kIsamDamaged;
  for (uint32_t level = 0; level < way.depth; ++level) {
    uint8_t* page;
    isam_code code = change.Edit(way.page[level], index, level + 1, &page);
    if (code != kIsamOk) return code;
    RemoveAt(page, def, way.at[level]);
    if (PageCount(page) > 0) return LowerRoot(change, index);
    change.Free(way.page[level]);
  }
  change.root.tree[index] = {0, 0};
  return kIsamOk;
}

}  // namespace isam
