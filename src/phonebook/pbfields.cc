// What the three tables store, and by which keys.
#include <iterator>

#include "phonebook/pbpriv.h"

namespace {

// The fields of a record follow each other without a gap; what they add up to.
template <size_t N>
constexpr int SizeWithoutGaps(const db_field (&fields)[N]) {
  int size = 0;
  for (size_t row = 0; row + 1 < N; ++row) {
    if (fields[row].offset != size) return -1;
    size += fields[row].length;
  }
  return size;
}

// Field numbers.
enum { kAlias = 0, kLname = 1, kFname = 2, kCompany = 3 };
enum { kGalias = 0, kPalias = 1 };

}  // namespace

// The abbreviation of "vext" and the description of "city" are odd, and known
// to users by now.
constexpr db_field pb_per_fields[] = {
    {"palias", "pal", "person alias", kx_typ_str, 16, 0, nullptr, nullptr},
    {"lname", "las", "last name", kx_typ_str, 32, 16, nullptr, nullptr},
    {"fname", "fir", "first name", kx_typ_str, 32, 48, nullptr, nullptr},
    {"company", "com", "company name", kx_typ_str, 64, 80, nullptr, nullptr},
    {"notes", "not", "notes", kx_typ_str, 64, 144, nullptr, nullptr},
    {"fcntry", "fcn", "fax country", kx_typ_str, 6, 208, nullptr, nullptr},
    {"farea", "far", "fax area code", kx_typ_str, 6, 214, nullptr, nullptr},
    {"flocal", "flo", "fax local number", kx_typ_str, 32, 220, nullptr,
     nullptr},
    {"fext", "fex", "fax extension", kx_typ_str, 6, 252, nullptr, nullptr},
    {"vcntry", "vcn", "voice country", kx_typ_str, 6, 258, nullptr, nullptr},
    {"varea", "var", "voice area code", kx_typ_str, 6, 264, nullptr, nullptr},
    {"vlocal", "vlo", "voice local number", kx_typ_str, 32, 270, nullptr,
     nullptr},
    {"vext", "cex", "voice extension", kx_typ_str, 6, 302, nullptr, nullptr},
    {"pcntry", "pcn", "pager country", kx_typ_str, 6, 308, nullptr, nullptr},
    {"parea", "par", "pager area code", kx_typ_str, 6, 314, nullptr, nullptr},
    {"plocal", "plo", "pager local number", kx_typ_str, 32, 320, nullptr,
     nullptr},
    {"pext", "pex", "pager extension", kx_typ_str, 6, 352, nullptr, nullptr},
    {"ccntry", "ccn", "cellular country", kx_typ_str, 6, 358, nullptr, nullptr},
    {"carea", "car", "cellular area code", kx_typ_str, 6, 364, nullptr,
     nullptr},
    {"clocal", "clo", "cellular local number", kx_typ_str, 32, 370, nullptr,
     nullptr},
    {"cext", "cex", "cellular extension", kx_typ_str, 6, 402, nullptr, nullptr},
    {"addr1", "ad1", "address line 1", kx_typ_str, 40, 408, nullptr, nullptr},
    {"addr2", "ad2", "address line 2", kx_typ_str, 40, 448, nullptr, nullptr},
    {"city", "cit", "cit", kx_typ_str, 40, 488, nullptr, nullptr},
    {"state", "sta", "state", kx_typ_str, 12, 528, nullptr, nullptr},
    {"country", "cou", "country", kx_typ_str, 24, 540, nullptr, nullptr},
    {"zip", "zip", "zip code", kx_typ_str, 12, 564, nullptr, nullptr},
    {"email", "ema", "e-mail address", kx_typ_str, 64, 576, nullptr, nullptr},
    {"info", "inf", "user info", kx_typ_str, 64, 640, nullptr, nullptr},
    {},
};
static_assert(SizeWithoutGaps(pb_per_fields) == kRecordSize);
static_assert(pb_per_fields[kLname].offset == kLastName.offset &&
              pb_per_fields[kFname].offset == kFirstName.offset);

constexpr db_field pb_per_fields_pseudo[] = {
    {"", "nam", "full name (first last)", kx_typ_str, 0, 0, pb_perrec_to_name,
     pb_name_to_perrec},
    {"", "fax", "fax number", kx_typ_str, 0, 0, pb_perrec_to_fax,
     pb_fax_to_perrec},
    {"", "voi", "voice number", kx_typ_str, 0, 0, pb_perrec_to_voice,
     pb_voice_to_perrec},
    {"", "pag", "pager number", kx_typ_str, 0, 0, pb_perrec_to_pager,
     pb_pager_to_perrec},
    {"", "cel", "cellular number", kx_typ_str, 0, 0, pb_perrec_to_cell,
     pb_cell_to_perrec},
    {},
};

constexpr db_field pb_grp_fields[] = {
    {"galias", "gal", "group alias", kx_typ_str, 16, 0, nullptr, nullptr},
    {"gdesc", "gde", "description", kx_typ_str, 64, 16, nullptr, nullptr},
    {},
};
static_assert(SizeWithoutGaps(pb_grp_fields) == 80);

constexpr db_field pb_mem_fields[] = {
    {"galias", "gal", "group  alias", kx_typ_str, 16, kMemberGroup, nullptr,
     nullptr},
    {"palias", "pal", "person alias", kx_typ_str, 16, kMemberPerson, nullptr,
     nullptr},
    {},
};
static_assert(SizeWithoutGaps(pb_mem_fields) == 32);

constexpr db_key pb_per_index[] = {
    {1, 1, {kAlias}},           {0, 1, {kLname}}, {0, 1, {kFname}},
    {0, 2, {kCompany, kLname}}, {-1, 0, {}},
};

constexpr db_key pb_grp_index[] = {
    {1, 1, {kAlias}},
    {-1, 0, {}},
};

constexpr db_key pb_mem_index[] = {
    {1, 2, {kGalias, kPalias}},
    {1, 2, {kPalias, kGalias}},
    {-1, 0, {}},
};

constexpr pb_side pb_person_side = {
    .file = &pb_book::per,
    .fields = pb_per_fields,
    .type = "obj-person",
    .absent = kx_err_person,
    .member_key = kMemberByPersonKey,
    .member_offset = kMemberPerson,
};

constexpr pb_side pb_group_side = {
    .file = &pb_book::grp,
    .fields = pb_grp_fields,
    .type = "obj-group",
    .absent = kx_err_group,
    .member_key = kMemberByGroupKey,
    .member_offset = kMemberGroup,
};
