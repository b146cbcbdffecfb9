#include "ctl/format/json.h"

#include <cstdio>
#include <cstring>

#include "ctl/format/format.h"
#include "kx/kxobj.h"

namespace client {
namespace {

// The length of the UTF-8 character at `text`, or 0 when there is none:
// overlong forms, surrogates and what lies above U+10FFFF are none.
size_t CharacterAt(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) {
    return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U;
  };
  const auto tail = [&](size_t count) {
    for (size_t i = 1; i <= count; ++i) {
      if ((byte(i) & 0xC0) != 0x80) return false;
    }
    return true;
  };
  const unsigned first = byte(0);
  const unsigned second = byte(1);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return tail(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {
    if (first == 0xE0 && second < 0xA0) return 0;
    if (first == 0xED && second > 0x9F) return 0;
    return tail(2) ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    if (first == 0xF0 && second < 0x90) return 0;
    if (first == 0xF4 && second > 0x8F) return 0;
    return tail(3) ? 4 : 0;
  }
  return 0;
}

void AppendUnicode(unsigned character, std::string* out) {
  char text[8];
  snprintf(text, sizeof text, "\\u%04x", character);
  *out += text;
}

void AppendEscaped(char c, std::string* out) {
  const auto byte = static_cast<unsigned char>(c);
  if (c == '"' || c == '\\') {
    *out += '\\';
    *out += c;
  } else if (byte < 0x20 || byte == 0x7F) {
    AppendUnicode(byte, out);
  } else {
    *out += c;
  }
}

// The value of a set field, or "" for one that JSON does not show.
std::string FieldValue(kx_object* obj, const kx_fielddef& field) {
  if (field.type == kx_typ_data) return "";
  if (field.type == kx_typ_obj || field.type == kx_typ_list) {
    kx_object* child = kx::Child(obj, field.name);
    return child == nullptr ? "" : ToJson(child);
  }
  // What is unset has no text, and no member.
  const char* text = kx::Text(obj, field.name);
  if (text == nullptr) return "";
  switch (field.type) {
    case kx_typ_word:
    case kx_typ_long:
    case kx_typ_bool:
      return text;
    case kx_typ_time:
      return JsonString(UtcTime(kx::Time(obj, field.name)));
    default:
      return JsonString(text);
  }
}

}  // namespace

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size();) {
    const size_t length = CharacterAt(text, i);
    if (length == 0) {
      out += "\\ufffd";
      ++i;
    } else if (length == 2 && text[i] == '\xC2' && text[i + 1] < '\xA0') {
      // C1, which a terminal obeys as well: U+0080 to U+009F.
      AppendUnicode(static_cast<unsigned char>(text[i + 1]), &out);
      i += length;
    } else if (length == 1) {
      AppendEscaped(text[i++], &out);
    } else {
      out.append(text, i, length);
      i += length;
    }
  }
  return out + "\"";
}

std::string JsonBool(bool value) { return value ? "true" : "false"; }

std::string JsonObject(const std::vector<JsonMember>& members) {
  std::string out = "{";
  for (const auto& [name, value] : members) {
    if (out.size() > 1) out += ',';
    out += JsonString(name) + ":" + value;
  }
  return out + "}";
}

std::string JsonArray(const std::vector<std::string>& elements) {
  std::string out = "[";
  for (const std::string& element : elements) {
    if (out.size() > 1) out += ',';
    out += element;
  }
  return out + "]";
}

std::string ToJson(kx_object* obj, const std::vector<JsonMember>& more) {
  const kx_objdef* type = kx_obj_info(obj);
  if (type == nullptr) return "null";
  if (strcmp(type->name, "obj-list") == 0) {
    std::vector<std::string> elements;
    for (kx_object* element : kx::Elements(obj)) {
      elements.push_back(ToJson(element));
    }
    return JsonArray(elements);
  }
  std::vector<JsonMember> members = {{"type", JsonString(type->name)}};
  for (const kx_fielddef* f = type->fields; f->name != nullptr; ++f) {
    std::string value = FieldValue(obj, *f);
    if (!value.empty()) members.emplace_back(f->name, std::move(value));
  }
  members.insert(members.end(), more.begin(), more.end());
  return JsonObject(members);
}

}  // namespace client
