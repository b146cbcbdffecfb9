#include "ctl/format/fields.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "ctl/format/format.h"

namespace client {
namespace {

// What the enum names that a field takes begin with; "" for any. The object
// library takes names of every group.
const char* GroupOf(const char* field) {
  constexpr struct {
    const char* field;
    const char* group;
  } kGroups[] = {{"notify", "not-"},  {"montype", "mon-"}, {"reqtype", "req-"},
                 {"cmdtype", "cmd-"}, {"pbcmd", "pbc-"},   {"pbtype", "pbt-"},
                 {"pbmode", "pbm-"},  {"pbsort", "pbs-"},  {"listtype", "lst-"},
                 {"rcmd", "pbc-"}};
  for (const auto& row : kGroups) {
    if (strcmp(row.field, field) == 0) return row.group;
  }
  return "";
}

// Whether a text is one of the field's kind in full; the object library itself
// takes the number at the beginning of any text.
bool Converts(const kx_fielddef& field, const std::string& text) {
  long number;
  switch (field.type) {
    case kx_typ_word:
    case kx_typ_long:
      // -1 is how the record says "unset".
      return ParseNumber(text, INT_MIN, INT_MAX, &number) && number != -1;
    case kx_typ_bool:
      return Kfx_Str_To_Bool(text.c_str()) != -1;
    case kx_typ_time:
      return Kfx_Str_To_Time(text.c_str()) != -1;
    case kx_typ_enum:
      return text.starts_with(GroupOf(field.name)) &&
             Kfx_Str_To_Enum(text.c_str()) != -1;
    default:
      return true;
  }
}

// A value ends at the end of its line.
bool IsOneLine(const std::string& text) {
  return std::none_of(text.begin(), text.end(),
                      [](unsigned char c) { return c < 0x20 && c != '\t'; });
}

}  // namespace

std::string WhyNoValue(const kx_fielddef& field, const std::string& text) {
  const std::string name = field.name;
  if (text.empty()) return "";
  if (!IsOneLine(text)) {
    return name + ": one line without control characters only";
  }
  const bool is_text = field.type >= kx_typ_str && field.type <= kx_typ_dir;
  const size_t limit = static_cast<size_t>(field.size) - 1;
  if (is_text && text.size() > limit) {
    return name + ": at most " + std::to_string(limit) + " bytes, not " +
           std::to_string(text.size());
  }
  if (Converts(field, text)) return "";
  return name + ": \"" + Printable(text) + "\" is no value for it";
}

std::string EnumName(const char* field, const std::string& text) {
  const std::string group = GroupOf(field);
  return text.starts_with(group) ? text : group + text;
}

}  // namespace client
