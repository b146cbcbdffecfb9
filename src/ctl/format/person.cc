#include "ctl/format/person.h"

#include <cctype>
#include <cstring>
#include <span>

#include "ctl/format/fields.h"
#include "ctl/format/format.h"
#include "kx/kxobj.h"
#include "phonebook/pb.h"
#include "util/kutstr.h"

namespace client {
namespace {

constexpr size_t kRecordSize = 704;  // bytes of a person's record
constexpr size_t kAliasLength = 15;

// A name for several stored fields.
struct Combined {
  const char* name;
  std::vector<const char*> fields;
  int (*to_text)(const char* record, char* text, size_t size);
  int (*to_record)(const char* text, char* record);
};

const std::vector<Combined>& AllCombined() {
  static const std::vector<Combined> kAll = {
      {"name", {"fname", "lname"}, pb_perrec_to_name, pb_name_to_perrec},
      {"fax",
       {"fcntry", "farea", "flocal", "fext"},
       pb_perrec_to_fax,
       pb_fax_to_perrec},
      {"voice",
       {"vcntry", "varea", "vlocal", "vext"},
       pb_perrec_to_voice,
       pb_voice_to_perrec},
      {"pager",
       {"pcntry", "parea", "plocal", "pext"},
       pb_perrec_to_pager,
       pb_pager_to_perrec},
      {"cell",
       {"ccntry", "carea", "clocal", "cext"},
       pb_perrec_to_cell,
       pb_cell_to_perrec},
  };
  return kAll;
}

const Combined* FindCombined(const std::string& name) {
  for (const Combined& combined : AllCombined()) {
    if (name == combined.name) return &combined;
  }
  return nullptr;
}

const db_field* FindStored(const char* name) {
  for (const db_field* f = pb_per_fields; f->name[0] != '\0'; ++f) {
    if (strcmp(f->name, name) == 0) return f;
  }
  return nullptr;
}

Status SetOne(kx_object* person, const char* field, const std::string& text) {
  const std::string why = WhyNoValue(*kx_field(field, person), text);
  if (!why.empty()) return {krt_bad_data, why};
  Kfx_Set(person, field, text.c_str());
  return {};
}

Status SetCombined(kx_object* person, const Combined& combined,
                   const std::string& text) {
  // By way of a record as the book stores it, for which the conversions are
  // made: so client and server split a number in the same way.
  char record[kRecordSize] = "";
  if (combined.to_record(text.c_str(), record) != 0) {
    return {krt_bad_data, std::string(combined.name) + ": \"" +
                              Printable(text) + "\" does not fit"};
  }
  for (const char* field : combined.fields) {
    Status s = SetOne(person, field, record + FindStored(field)->offset);
    if (!s.ok()) return s;
  }
  return {};
}

}  // namespace

const std::vector<const char*>& PersonFields() {
  static const std::vector<const char*> kFields = [] {
    std::vector<const char*> names;
    const kx_objdef* type = kx_obj_by_type("obj-person");
    for (const kx_fielddef* f = type->fields; f->name != nullptr; ++f) {
      names.push_back(f->name);
    }
    return names;
  }();
  return kFields;
}

const std::vector<const char*>& PersonNames() {
  static const std::vector<const char*> kNames = [] {
    std::vector<const char*> names = PersonFields();
    for (const Combined& combined : AllCombined()) {
      names.push_back(combined.name);
    }
    return names;
  }();
  return kNames;
}

const char* FindPersonName(const std::string& name) {
  const std::string wanted = Lower(name);
  for (const char* known : PersonNames()) {
    if (wanted == known) return known;
  }
  return nullptr;
}

Status SetPersonText(kx_object* person, const std::string& name,
                     const std::string& text) {
  const Combined* combined = FindCombined(name);
  return combined != nullptr ? SetCombined(person, *combined, text)
                             : SetOne(person, name.c_str(), text);
}

std::string PersonText(kx_object* person, const std::string& name) {
  const Combined* combined = FindCombined(name);
  if (combined == nullptr) return kx::TextOrEmpty(person, name.c_str());
  char record[kRecordSize] = "";
  for (const char* field : combined->fields) {
    const db_field* stored = FindStored(field);
    Kut_strcpyz(record + stored->offset, kx::TextOrEmpty(person, field),
                static_cast<size_t>(stored->length));
  }
  char buffer[KX_PAIR_SIZE] = "";
  combined->to_text(record, buffer, sizeof buffer);
  // Who has one name only has a blank beside it.
  std::string text = buffer;
  text.erase(text.find_last_not_of(' ') + 1);
  return text.erase(0, text.find_first_not_of(' '));
}

std::string AliasKey(const std::string& alias) {
  std::string key = alias.substr(0, kAliasLength);
  for (char& c : key) {
    c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
  }
  return key;
}

void MakeAlias(kx_object* person, const std::string& text,
               std::set<std::string>* used) {
  std::string base;
  for (const char c : text) {
    if (isalnum(static_cast<unsigned char>(c)) != 0 && base.size() < 12) {
      base += c;
    }
  }
  if (base.empty()) base = "person";
  std::string alias = base;
  for (int n = 2; !used->insert(AliasKey(alias)).second; ++n) {
    const std::string number = std::to_string(n);
    // The number is what tells them apart: the name makes room for it.
    alias = base.substr(0, kAliasLength - number.size()) + number;
  }
  kx::SetText(person, "palias", alias.c_str());
}

}  // namespace client
