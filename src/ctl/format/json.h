// Objects as JSON, by their types' field tables.
//
// - An object is {"type":"obj-person", ...}: its set fields under the
//   protocol's names, in table order. Numbers and booleans are such, times are
//   RFC 3339 in UTC, enums and texts strings, lists arrays. What is unset is
//   absent, and so are data fields.
// - Control characters are escaped, those above ASCII too; bytes that are not
//   UTF-8 become U+FFFD.
#ifndef CTL_FORMAT_JSON_H_
#define CTL_FORMAT_JSON_H_

#include <string>
#include <utility>
#include <vector>

#include "kx/kfx.h"

namespace client {

// A member: name, and value already encoded.
using JsonMember = std::pair<std::string, std::string>;

std::string JsonString(const std::string& text);
std::string JsonBool(bool value);
std::string JsonObject(const std::vector<JsonMember>& members);
std::string JsonArray(const std::vector<std::string>& elements);

// Null is "null"; a list is an array; `more` come after the object's own.
std::string ToJson(kx_object* obj, const std::vector<JsonMember>& more = {});

}  // namespace client

#endif  // CTL_FORMAT_JSON_H_
