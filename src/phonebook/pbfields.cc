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

constexpr void Put(const char* text, char* place) {
  while (*text != '\0') *place++ = *text++;
}

// A stored text.
constexpr db_field Text(const char* name, const char* abbr, const char* desc,
                        pb_place place) {
  db_field field = {};
  Put(name, field.name);
  Put(abbr, field.abbr);
  Put(desc, field.desc);
  field.type = kx_typ_str;
  field.length = place.length;
  field.offset = place.offset;
  return field;
}

// A text that is made from stored ones, and put into them.
constexpr db_field Pseudo(const char* abbr, const char* desc,
                          db_to_text to_text, db_from_text from_text) {
  db_field field = Text("", abbr, desc, {});
  field.to_text = to_text;
  field.from_text = from_text;
  return field;
}

constexpr pb_place PartOf(int number, pb_number_part part) {
  return {number + kNumberPlaces[part].offset, kNumberPlaces[part].length};
}

// Field numbers.
enum { kAlias = 0, kLname = 1, kFname = 2, kCompany = 3 };
enum { kGalias = 0, kPalias = 1 };

constexpr db_key kEnd = {.unique = -1, .count = 0, .fields = {}};

}  // namespace

// The abbreviation of "vext" and the description of "city" are odd, and known
// to users by now.
constexpr db_field pb_per_fields[] = {
    Text("palias", "pal", "person alias", kAliasPlace),
    Text("lname", "las", "last name", kLastName),
    Text("fname", "fir", "first name", kFirstName),
    Text("company", "com", "company name", {80, 64}),
    Text("notes", "not", "notes", {144, 64}),
    Text("fcntry", "fcn", "fax country", PartOf(kFaxNumber, kCountry)),
    Text("farea", "far", "fax area code", PartOf(kFaxNumber, kArea)),
    Text("flocal", "flo", "fax local number", PartOf(kFaxNumber, kLocal)),
    Text("fext", "fex", "fax extension", PartOf(kFaxNumber, kExtension)),
    Text("vcntry", "vcn", "voice country", PartOf(kVoiceNumber, kCountry)),
    Text("varea", "var", "voice area code", PartOf(kVoiceNumber, kArea)),
    Text("vlocal", "vlo", "voice local number", PartOf(kVoiceNumber, kLocal)),
    Text("vext", "cex", "voice extension", PartOf(kVoiceNumber, kExtension)),
    Text("pcntry", "pcn", "pager country", PartOf(kPagerNumber, kCountry)),
    Text("parea", "par", "pager area code", PartOf(kPagerNumber, kArea)),
    Text("plocal", "plo", "pager local number", PartOf(kPagerNumber, kLocal)),
    Text("pext", "pex", "pager extension", PartOf(kPagerNumber, kExtension)),
    Text("ccntry", "ccn", "cellular country", PartOf(kCellNumber, kCountry)),
    Text("carea", "car", "cellular area code", PartOf(kCellNumber, kArea)),
    Text("clocal", "clo", "cellular local number", PartOf(kCellNumber, kLocal)),
    Text("cext", "cex", "cellular extension", PartOf(kCellNumber, kExtension)),
    Text("addr1", "ad1", "address line 1", {408, 40}),
    Text("addr2", "ad2", "address line 2", {448, 40}),
    Text("city", "cit", "cit", {488, 40}),
    Text("state", "sta", "state", {528, 12}),
    Text("country", "cou", "country", {540, 24}),
    Text("zip", "zip", "zip code", {564, 12}),
    Text("email", "ema", "e-mail address", {576, 64}),
    Text("info", "inf", "user info", {640, 64}),
    {},
};
static_assert(SizeWithoutGaps(pb_per_fields) == kRecordSize);

constexpr db_field pb_per_fields_pseudo[] = {
    Pseudo("nam", "full name (first last)", pb_perrec_to_name,
           pb_name_to_perrec),
    Pseudo("fax", "fax number", pb_perrec_to_fax, pb_fax_to_perrec),
    Pseudo("voi", "voice number", pb_perrec_to_voice, pb_voice_to_perrec),
    Pseudo("pag", "pager number", pb_perrec_to_pager, pb_pager_to_perrec),
    Pseudo("cel", "cellular number", pb_perrec_to_cell, pb_cell_to_perrec),
    {},
};

constexpr db_field pb_grp_fields[] = {
    Text("galias", "gal", "group alias", kAliasPlace),
    Text("gdesc", "gde", "description", {16, 64}),
    {},
};
static_assert(SizeWithoutGaps(pb_grp_fields) == 80);

constexpr db_field pb_mem_fields[] = {
    Text("galias", "gal", "group  alias", kMemberGroup),
    Text("palias", "pal", "person alias", kMemberPerson),
    {},
};
static_assert(SizeWithoutGaps(pb_mem_fields) == 32);

constexpr db_key pb_per_index[] = {
    {.unique = 1, .count = 1, .fields = {kAlias}},
    {.unique = 0, .count = 1, .fields = {kLname}},
    {.unique = 0, .count = 1, .fields = {kFname}},
    {.unique = 0, .count = 2, .fields = {kCompany, kLname}},
    kEnd,
};

constexpr db_key pb_grp_index[] = {
    {.unique = 1, .count = 1, .fields = {kAlias}},
    kEnd,
};

constexpr db_key pb_mem_index[] = {
    {.unique = 1, .count = 2, .fields = {kGalias, kPalias}},
    {.unique = 1, .count = 2, .fields = {kPalias, kGalias}},
    kEnd,
};

constexpr pb_side pb_person_side = {
    .file = &pb_book::per,
    .fields = pb_per_fields,
    .type = "obj-person",
    .absent = kx_err_person,
    .member_key = kMemberByPersonKey,
    .member_offset = kMemberPerson.offset,
};

constexpr pb_side pb_group_side = {
    .file = &pb_book::grp,
    .fields = pb_grp_fields,
    .type = "obj-group",
    .absent = kx_err_group,
    .member_key = kMemberByGroupKey,
    .member_offset = kMemberGroup.offset,
};
