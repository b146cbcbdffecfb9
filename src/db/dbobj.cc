// Records to objects and back, by the names of the fields.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "db/dbpriv.h"
#include "kx/object.h"

namespace {

constexpr int kNumberSize = 4;
constexpr size_t kTextSize = 512;  // the longest text of an object's field

// How the kinds of value that fit into a record are kept there. `place` is the
// field's first byte.

int PutText(const db_field& field, const char* text, char* place) {
  const size_t length = text != nullptr ? strlen(text) : 0;
  if (length >= static_cast<size_t>(field.length)) return db_fail(kDbData);
  std::copy_n(text, length, place);
  return 0;
}

int GetText(const db_field& field, const char* place, kx_object* obj) {
  char text[kTextSize];
  const size_t length = strnlen(place, static_cast<size_t>(field.length));
  if (length >= sizeof text) return db_fail(kDbData);
  memcpy(text, place, length);
  text[length] = '\0';
  return Kfx_Set(obj, field.name, text) == 0 ? 0 : db_fail(kDbData);
}

int ParseNumber(int type, const char* text) {
  switch (type) {
    case kx_typ_enum:
      return Kfx_Str_To_Enum(text);
    case kx_typ_bool:
      return Kfx_Str_To_Bool(text);
    case kx_typ_time:
      return Kfx_Str_To_Time(text);
    default:
      return Kfx_Str_To_Long(text);
  }
}

int PutNumber(const db_field& field, const char* text, char* place) {
  if (field.length != kNumberSize) return db_fail(kDbData);
  const auto bits = static_cast<uint32_t>(ParseNumber(field.type, text));
  for (int i = 0; i < kNumberSize; ++i) {
    place[i] = static_cast<char>(bits >> (8 * i));
  }
  return 0;
}

int SetNumber(const db_field& field, int value, kx_object* obj) {
  if (value == -1) return Kfx_Set(obj, field.name, nullptr);
  switch (field.type) {
    case kx_typ_enum:
      return kx::SetEnum(obj, field.name, value);
    case kx_typ_bool:
      return kx::SetBool(obj, field.name, value != 0);
    case kx_typ_time:
      return kx::SetTime(obj, field.name, value);
    default:
      return kx::SetNumber(obj, field.name, value);
  }
}

int GetNumber(const db_field& field, const char* place, kx_object* obj) {
  if (field.length != kNumberSize) return db_fail(kDbData);
  uint32_t bits = 0;
  for (int i = 0; i < kNumberSize; ++i) {
    bits |= static_cast<uint32_t>(static_cast<unsigned char>(place[i]))
            << (8 * i);
  }
  const int value = static_cast<int>(bits);
  return SetNumber(field, value, obj) == 0 ? 0 : db_fail(kDbData);
}

int PutField(const db_field& field, kx_object* obj, char* place) {
  const void* value = Kfx_Get(obj, field.name);
  if (db_is_text(field.type)) {
    return PutText(field, static_cast<const char*>(value), place);
  }
  if (field.type >= kx_typ_enum && field.type <= kx_typ_time) {
    return PutNumber(field, static_cast<const char*>(value), place);
  }
  if (field.type != kx_typ_data ||
      (value != nullptr && Kfx_Field_Length(obj, field.name) != field.length)) {
    return db_fail(kDbData);
  }
  if (value != nullptr) memcpy(place, value, static_cast<size_t>(field.length));
  return 0;
}

int GetField(const db_field& field, const char* place, kx_object* obj) {
  if (db_is_text(field.type)) return GetText(field, place, obj);
  if (field.type >= kx_typ_enum && field.type <= kx_typ_time) {
    return GetNumber(field, place, obj);
  }
  if (field.type != kx_typ_data ||
      Kfx_Field_Length(obj, field.name) != field.length) {
    return db_fail(kDbData);
  }
  return Kfx_Set(obj, field.name, place);
}

int PutPseudoField(const db_field& field, kx_object* obj, char* record) {
  const char* text = kx::Text(obj, field.abbr);
  if (text == nullptr || field.from_text(text, record) == 0) return 0;
  snprintf(db_errbuf, sizeof db_errbuf, "Invalid field %s", field.abbr);
  return db_fail(kDbField);
}

int GetPseudoField(const db_field& field, const char* record, kx_object* obj) {
  char text[kTextSize];
  if (Kfx_Field_Type(obj, field.abbr) == -1) return 0;
  if (field.to_text(record, text, sizeof text) == 0 &&
      Kfx_Set(obj, field.abbr, text) == 0) {
    return 0;
  }
  snprintf(db_errbuf, sizeof db_errbuf, "Invalid field %s", field.abbr);
  return db_fail(kDbField);
}

}  // namespace

int db_obj_to_rec(const db_handle* db, kx_object* obj, void* record) {
  char* bytes = static_cast<char*>(record);
  memset(bytes, 0, static_cast<size_t>(db_record_size(db)));
  for (const db_field* field = db->fields; !db_is_end(*field); ++field) {
    const int result = db_is_pseudo(*field)
                           ? PutPseudoField(*field, obj, bytes)
                           : PutField(*field, obj, bytes + field->offset);
    if (result != 0) return -1;
  }
  return 0;
}

int db_rec_to_obj(const db_handle* db, const void* record, kx_object* obj) {
  const char* bytes = static_cast<const char*>(record);
  for (const db_field* field = db->fields; !db_is_end(*field); ++field) {
    const int result = db_is_pseudo(*field)
                           ? GetPseudoField(*field, bytes, obj)
                           : GetField(*field, bytes + field->offset, obj);
    if (result != 0) return -1;
  }
  return 0;
}
