// Field lists, for people.
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "db/dbpriv.h"

namespace {

const char* TypeName(int type) {
  for (const db_dtype* row = db_dtypes; row->name != nullptr; ++row) {
    if (row->type == type) return row->name;
  }
  return Kfx_Enum_To_Str(type);
}

bool IsField(const db_field* fields, const char* word, size_t length) {
  for (; !db_is_end(*fields); ++fields) {
    for (const char* name : {fields->name, fields->abbr}) {
      if (strlen(name) == length && strncmp(name, word, length) == 0) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

constexpr db_dtype db_dtypes[] = {
    {"enum", kx_typ_enum}, {"bool", kx_typ_bool}, {"word", kx_typ_word},
    {"long", kx_typ_long}, {"time", kx_typ_time}, {"char", kx_typ_str},
    {nullptr, 0},
};

const char* db_field_str(const db_field* field) {
  static char text[160];
  if (db_is_pseudo(*field)) {
    snprintf(text, sizeof text, "(%s) %s", field->abbr, field->desc);
  } else {
    snprintf(text, sizeof text, "%s (%s) %s[%d] %s", field->name, field->abbr,
             TypeName(field->type), field->length, field->desc);
  }
  return text;
}

int db_valid_flds(const db_field* fields, const char* list) {
  constexpr char kDividers[] = ", \t";
  for (const char* word = list + strspn(list, kDividers); *word != '\0';) {
    const size_t length = strcspn(word, kDividers);
    if (!IsField(fields, word, length)) {
      snprintf(db_errbuf, sizeof db_errbuf, "Invalid field %.*s",
               static_cast<int>(length > 200 ? 200 : length), word);
      return db_fail(kDbField);
    }
    word += length;
    word += strspn(word, kDividers);
  }
  return 0;
}

void db_help_flds(const db_field* fields, FILE* out) {
  for (; !db_is_end(*fields); ++fields) {
    fprintf(out, "%s\n", db_field_str(fields));
  }
}
