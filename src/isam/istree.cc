#include "isam/istree.h"

#include "isam/ispage.h"

namespace isam {
namespace {

isam_code PageAt(Table& table, const TreePos& pos, uint32_t level,
                 const uint8_t** page) {
  return GetPage(table, pos.page[level], pos.index, level + 1, page);
}

// From the page at `level` down to the leaf. `choose(page)` says which entry to
// take on each inner page and in the leaf.
template <typename Choose>
isam_code Descend(Table& table, TreePos* pos, uint32_t level, Choose choose) {
  const Index& index = table.layout.index[pos->index];
  for (;; --level) {
    const uint8_t* page;
    if (isam_code code = PageAt(table, *pos, level, &page)) return code;
    pos->at[level] = choose(page);
    if (level == 0) return kIsamOk;
    pos->page[level - 1] =
        EntryTarget(PageEntry(page, index, pos->at[level]), index);
  }
}

template <typename Choose>
isam_code FromRoot(Table& table, uint32_t index, TreePos* pos, Choose choose) {
  const Tree& tree = table.root.tree[index];
  if (tree.depth == 0) return kIsamNotFound;
  pos->index = index;
  pos->depth = tree.depth;
  pos->page[tree.depth - 1] = tree.page;
  return Descend(table, pos, tree.depth - 1, choose);
}

uint32_t FirstOf(const uint8_t*) { return 0; }
uint32_t LastOf(const uint8_t* page) { return PageCount(page) - 1; }

}  // namespace

isam_code TreeSeek(Table& table, uint32_t index, const uint8_t* key,
                   uint32_t length, TreePos* pos) {
  const Index& def = table.layout.index[index];
  const uint8_t* leaf = nullptr;
  const auto choose = [&](const uint8_t* page) {
    leaf = page;
    return TypeOfPage(page) == PageType::kLeaf
               ? LowerBound(page, def, 0, key, length)
               : ChildFor(page, def, key, length);
  };
  if (isam_code code = FromRoot(table, index, pos, choose)) return code;
  if (pos->at[0] < PageCount(leaf)) return kIsamOk;
  --pos->at[0];  // behind the last of its leaf: the next leaf begins with it
  return TreeNext(table, pos);
}

isam_code TreeFirst(Table& table, uint32_t index, TreePos* pos) {
  return FromRoot(table, index, pos, FirstOf);
}

isam_code TreeLast(Table& table, uint32_t index, TreePos* pos) {
  return FromRoot(table, index, pos, LastOf);
}

isam_code TreeNext(Table& table, TreePos* pos) {
  for (uint32_t level = 0; level < pos->depth; ++level) {
    const uint8_t* page;
    if (isam_code code = PageAt(table, *pos, level, &page)) return code;
    if (pos->at[level] + 1 >= PageCount(page)) continue;
    const Index& index = table.layout.index[pos->index];
    ++pos->at[level];
    if (level == 0) return kIsamOk;
    pos->page[level - 1] =
        EntryTarget(PageEntry(page, index, pos->at[level]), index);
    return Descend(table, pos, level - 1, FirstOf);
  }
  return kIsamNotFound;
}

isam_code TreePrev(Table& table, TreePos* pos) {
  for (uint32_t level = 0; level < pos->depth; ++level) {
    if (pos->at[level] == 0) continue;
    const uint8_t* page;
    if (isam_code code = PageAt(table, *pos, level, &page)) return code;
    const Index& index = table.layout.index[pos->index];
    --pos->at[level];
    if (level == 0) return kIsamOk;
    pos->page[level - 1] =
        EntryTarget(PageEntry(page, index, pos->at[level]), index);
    return Descend(table, pos, level - 1, LastOf);
  }
  return kIsamNotFound;
}

isam_code TreeEntry(Table& table, const TreePos& pos, const uint8_t** entry) {
  const uint8_t* page;
  if (isam_code code = PageAt(table, pos, 0, &page)) return code;
  *entry = PageEntry(page, table.layout.index[pos.index], pos.at[0]);
  return kIsamOk;
}

}  // namespace isam
