#include "phonebook/pbrange.h"
#include "phonebook/pbwalk.h"

namespace {

// Which persons a list takes: all, or the members of a group.
class Filter {
 public:
  Filter(pb_book* book, const char* group)
      : book_(pb_is_empty(group) ? nullptr : book),
        group_(pb_alias_key(group)) {}
  pb_member Accepts(const pb_record& record) const {
    return book_ == nullptr ? pb_member::kYes
                            : pb_is_member(book_, group_, record);
  }

 private:
  pb_book* const book_;
  const pb_key group_;
};

// Appends the walk's record. kx_err_database; kx_err_pb_memory.
int Append(const pb_walk& walk, const char* type, kx::ListBuilder* list) {
  kx::Object obj = kx::Build(type);
  if (obj == nullptr) return pb_fail(kx_err_pb_memory);
  if (walk.GetObject(obj.get()) != 0) return -1;
  return list->Append(std::move(obj)) ? 0 : pb_fail(kx_err_pb_memory);
}

// The list to return: all of it when the end was reached, what there is of it
// when the memory was.
kx_object* Finish(int result, kx::ListBuilder* list) {
  if (result == 0 || pb_errno == kx_err_eof) pb_errno = kx_err_none;
  const bool is_kept = pb_errno == kx_err_none || pb_errno == kx_err_pb_memory;
  return is_kept ? list->Take().release() : nullptr;
}

bool IsFull(const kx::ListBuilder& list, int max) {
  return max > 0 && list.count() >= max;
}

// The first record of a list; to begin past the end is to be at the end.
int Begin(pb_walk* walk, int step, const pb_key& key) {
  const int result = walk->Step(step, key);
  if (result != 0 && step == kx_pbc_gteq && pb_errno == walk->absent()) {
    pb_errno = kx_err_eof;
  }
  return result;
}

kx_object* Collect(pb_walk* walk, const char* type, int step, const pb_key& key,
                   int max, const Filter& filter) {
  kx::ListBuilder list;
  int result = Begin(walk, step, key);
  while (result == 0) {
    const pb_member accepted = filter.Accepts(walk->record());
    if (accepted == pb_member::kFailed) result = -1;
    if (accepted == pb_member::kYes) result = Append(*walk, type, &list);
    // Stopping here keeps the cursor at the last entry.
    if (result != 0 || IsFull(list, max)) break;
    result = walk->MoveOn(step);
  }
  return Finish(result, &list);
}

}  // namespace

kx_object* pb_list_per_get(int kind, int sort, int step, const char* key,
                           int max, const char* group) {
  const pb_use book(kind);
  int order = 0;
  if (book == nullptr || !pb_get_order(sort, &order)) return nullptr;
  pb_table_walk walk(book->per, order, kx_err_person);
  return Collect(&walk, pb_person_side.type, step, pb_text_key(key), max,
                 Filter(book, group));
}

kx_object* pb_list_grp_get(int kind, int step, const char* key, int max) {
  const pb_use book(kind);
  if (book == nullptr) return nullptr;
  pb_table_walk walk(book->grp, kAliasKey, kx_err_group);
  return Collect(&walk, pb_group_side.type, step, pb_text_key(key), max,
                 Filter(book, nullptr));
}

kx_object* pb_list_mem_get_by_grp(int kind, int step, const char* key,
                                  int max) {
  const pb_use book(kind);
  if (book == nullptr) return nullptr;
  pb_side_walk walk(book, pb_group_side, pb_person_side, key);
  return Collect(&walk, pb_person_side.type, step, pb_key{}, max,
                 Filter(book, nullptr));
}

kx_object* pb_list_mem_get_by_per(int kind, int step, const char* key,
                                  int max) {
  const pb_use book(kind);
  if (book == nullptr) return nullptr;
  pb_side_walk walk(book, pb_person_side, pb_group_side, key);
  return Collect(&walk, pb_group_side.type, step, pb_key{}, max,
                 Filter(book, nullptr));
}

kx_object* pb_list_per_pos_get(int kind, int sort, const char* from,
                               const char* to, const char* group, int offset,
                               int max) {
  const pb_use book(kind);
  if (book == nullptr) return nullptr;
  int order = 0;
  const bool is_known = pb_get_order(sort, &order);
  const pb_range range(order, from, to);
  if (range.IsReversed()) {
    pb_errno = kx_err_none;
    return nullptr;
  }
  if (!is_known || offset < 0) {
    pb_fail(kx_err_pb_data);
    return nullptr;
  }
  const Filter filter(book, group);
  kx::ListBuilder list;
  pb_table_walk walk(book->per, order, kx_err_person);
  int result =
      Begin(&walk, range.has_from() ? kx_pbc_gteq : kx_pbc_first, range.from());
  for (; result == 0 && !IsFull(list, max); result = walk.MoveOn(kx_pbc_next)) {
    const pb_member accepted = filter.Accepts(walk.record());
    if (accepted == pb_member::kFailed) return nullptr;
    if (accepted == pb_member::kNo) continue;
    if (offset > 0) {
      --offset;
      continue;
    }
    if (range.IsBeyond(walk.record())) break;
    if (Append(walk, pb_person_side.type, &list) != 0) return Finish(-1, &list);
  }
  return Finish(result, &list);
}
