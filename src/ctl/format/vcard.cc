#include "ctl/format/vcard.h"

#include <algorithm>
#include <cctype>

#include "ctl/format/format.h"
#include "ctl/format/person.h"
#include "kx/object.h"

namespace client {
namespace {

constexpr size_t kFoldAt = 75;  // bytes of a line
constexpr char kOwn[] = "x-krt-";

// The fields that standard properties cannot carry exactly.
constexpr const char* kOwnFields[] = {
    "palias", "fcntry", "farea", "flocal", "fext",  "vcntry",
    "varea",  "vlocal", "vext",  "pcntry", "parea", "plocal",
    "pext",   "ccntry", "carea", "clocal", "cext",  "info"};

// Kinds of telephone: our name, and how TEL's TYPE says it.
constexpr struct {
  const char* name;
  const char* type;
} kPhones[] = {
    {"fax", "fax"}, {"cell", "cell"}, {"pager", "pager"}, {"voice", "voice"}};

struct Property {
  int line;
  std::string name;    // in lower case, without its group
  std::string params;  // in lower case
  std::string value;   // still escaped
};

// Puts continued lines together.
std::vector<std::pair<int, std::string>> Unfold(const std::string& text) {
  std::vector<std::pair<int, std::string>> lines;
  int number = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    std::string line = text.substr(at, end - at);
    at = end + 1;
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const bool continues = !line.empty() && (line[0] == ' ' || line[0] == '\t');
    if (continues && !lines.empty()) {
      lines.back().second += line.substr(1);
    } else if (!line.empty()) {
      lines.emplace_back(number, std::move(line));
    }
  }
  return lines;
}

bool ParseProperty(const std::pair<int, std::string>& line,
                   Property* property) {
  // A colon inside a quoted parameter does not end the name.
  const std::string& text = line.second;
  bool quoted = false;
  size_t colon = 0;
  for (; colon < text.size(); ++colon) {
    if (text[colon] == '"') quoted = !quoted;
    if (text[colon] == ':' && !quoted) break;
  }
  if (colon == text.size()) return false;
  std::string head = Lower(text.substr(0, colon));
  const size_t semicolon = std::min(head.find(';'), head.size());
  property->line = line.first;
  property->name = head.substr(0, semicolon);
  property->params = head.substr(semicolon);
  // "item1.TEL" is TEL: a group only says which properties belong together.
  const size_t dot = property->name.rfind('.');
  if (dot != head.npos) property->name.erase(0, dot + 1);
  property->value = text.substr(colon + 1);
  return true;
}

// Splits a value at separators that are not escaped, and undoes the escapes.
std::vector<std::string> Split(const std::string& value, char separator) {
  std::vector<std::string> parts(1);
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\' && i + 1 < value.size()) {
      const char c = value[++i];
      parts.back() += c == 'n' || c == 'N' ? '\n' : c;
    } else if (value[i] == separator) {
      parts.emplace_back();
    } else {
      parts.back() += value[i];
    }
  }
  return parts;
}

std::string Text(const std::string& value) { return Split(value, '\0')[0]; }

// A telephone number without what its URI form adds.
std::string PhoneText(const Property& property) {
  std::string text = Text(property.value);
  if (!Lower(text).starts_with("tel:")) return text;
  text.erase(0, 4);
  const size_t semicolon = std::min(text.find(';'), text.size());
  const std::string params = Lower(text.substr(semicolon));
  text.resize(semicolon);
  const size_t extension = params.find(";ext=");
  if (extension != params.npos) {
    const std::string number = params.substr(extension + 5);
    text += " x" + number.substr(0, number.find(';'));
  }
  return text;
}

// Turns properties into fields.
class CardBuilder {
 public:
  explicit CardBuilder(int line) { card_.line = line; }

  Status Take(const Property& p) {
    if (p.params.find("quoted-printable") != p.params.npos) {
      return {krt_bad_data, "line " + std::to_string(p.line) +
                                ": the encoding of vCard 2.1 is not read"};
    }
    if (p.name.starts_with(kOwn)) {
      Add(p.name.substr(sizeof kOwn - 1), Text(p.value));
    } else if (p.name == "n") {
      has_n_ = true;
      AddParts(p, {"lname", "fname"});
    } else if (p.name == "fn") {
      full_name_ = Text(p.value);
    } else if (p.name == "org") {
      AddParts(p, {"company"});
    } else if (p.name == "note") {
      AddFirst("notes", Text(p.value));
    } else if (p.name == "email") {
      AddFirst("email", Text(p.value));
    } else if (p.name == "adr") {
      AddParts(p, {"", "addr2", "addr1", "city", "state", "zip", "country"});
    } else if (p.name == "tel") {
      AddPhone(p);
    }
    return {};
  }

  Card Finish() {
    // In our own cards N is exact; where it is empty, FN is made up.
    const bool exact = has_n_ && Has("palias");
    if (!exact && !Has("lname") && !Has("fname")) Add("name", full_name_);
    return std::move(card_);
  }

 private:
  bool Has(const std::string& field) const {
    return std::any_of(card_.values.begin(), card_.values.end(),
                       [&](const auto& v) { return v.first == field; });
  }
  void Add(const std::string& field, const std::string& text) {
    if (FindPersonName(field) == nullptr || text.empty()) return;
    card_.values.emplace_back(field, text);
  }
  // A card may have several; a person has one.
  void AddFirst(const std::string& field, const std::string& text) {
    if (!Has(field)) Add(field, text);
  }
  void AddParts(const Property& p, const std::vector<const char*>& fields) {
    const std::vector<std::string> parts = Split(p.value, ';');
    for (size_t i = 0; i < fields.size() && i < parts.size(); ++i) {
      if (*fields[i] != '\0') AddFirst(fields[i], parts[i]);
    }
  }
  void AddPhone(const Property& p) {
    for (const auto& phone : kPhones) {
      if (p.params.find(phone.type) == p.params.npos) continue;
      return AddFirst(phone.name, PhoneText(p));
    }
    // Of any other kind, "home" or none: somebody answers it.
    AddFirst("voice", PhoneText(p));
  }

  Card card_;
  std::string full_name_;
  bool has_n_ = false;
};

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\' || c == ',' || c == ';') out += '\\';
    out += c;
  }
  return out;
}

// Folds a line so that no character is torn apart.
std::string Folded(const std::string& line) {
  std::string out;
  size_t used = 0;
  for (size_t at = 0; at < line.size();) {
    size_t end = at + 1;
    while (end < line.size() && (line[end] & 0xC0) == 0x80) ++end;
    if (used + (end - at) > kFoldAt) {
      out += "\r\n ";
      used = 1;
    }
    out.append(line, at, end - at);
    used += end - at;
    at = end;
  }
  return out + "\r\n";
}

std::string Structured(kx_object* person,
                       const std::vector<const char*>& fields) {
  std::string value;
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) value += ';';
    value += Escaped(kx::TextOrEmpty(person, fields[i]));
  }
  return value;
}

bool AnySet(kx_object* person, const std::vector<const char*>& fields) {
  return std::any_of(fields.begin(), fields.end(), [&](const char* field) {
    return kx::Text(person, field) != nullptr;
  });
}

}  // namespace

Status ParseVcards(const std::string& text, std::vector<Card>* cards) {
  const bool marked = text.starts_with("\xEF\xBB\xBF");
  std::vector<CardBuilder> open;
  for (const auto& line : Unfold(text.substr(marked ? 3 : 0))) {
    const std::string where = "line " + std::to_string(line.first) + ": ";
    Property property;
    if (!ParseProperty(line, &property)) {
      return {krt_bad_data, where + "not a property"};
    }
    const std::string value = Lower(property.value);
    if (property.name == "begin" && value == "vcard") {
      if (!open.empty()) return {krt_bad_data, where + "a card in a card"};
      open.emplace_back(line.first);
    } else if (open.empty()) {
      return {krt_bad_data, where + "outside of a card"};
    } else if (property.name == "end" && value == "vcard") {
      cards->push_back(open.back().Finish());
      open.clear();
    } else if (Status s = open.back().Take(property); !s.ok()) {
      return s;
    }
  }
  if (!open.empty()) return {krt_bad_data, "the last card has no end"};
  return {};
}

std::string VcardOf(kx_object* person, const std::string& version) {
  std::string name = PersonText(person, "name");
  // A card must have FN.
  if (name.empty()) name = kx::TextOrEmpty(person, "company");
  if (name.empty()) name = kx::TextOrEmpty(person, "palias");
  std::string card = "BEGIN:VCARD\r\nVERSION:" + version + "\r\n";
  card += Folded("FN:" + Escaped(name));
  card += Folded("N:" + Structured(person, {"lname", "fname"}) + ";;;");
  const auto add = [&](const std::string& head, const std::string& text) {
    if (!text.empty()) card += Folded(head + ":" + Escaped(text));
  };
  add("ORG", kx::TextOrEmpty(person, "company"));
  add("NOTE", kx::TextOrEmpty(person, "notes"));
  add("EMAIL", kx::TextOrEmpty(person, "email"));
  for (const auto& phone : kPhones) {
    add(std::string("TEL;TYPE=") + phone.type, PersonText(person, phone.name));
  }
  const std::vector<const char*> address = {"addr2", "addr1", "city",
                                            "state", "zip",   "country"};
  if (AnySet(person, address)) {
    card += Folded("ADR:;" + Structured(person, address));
  }
  for (const char* field : kOwnFields) {
    std::string property = kOwn + std::string(field);
    for (char& c : property) {
      c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    }
    add(property, kx::TextOrEmpty(person, field));
  }
  return card + "END:VCARD\r\n";
}

}  // namespace client
