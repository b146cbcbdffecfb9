// Any text as a file of persons to import, CSV or vCards: an error that names a
// line, or rows; and the persons that they make come back from their own vCard
// and from their own line of CSV.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "ctl/format/csv.h"
#include "ctl/format/json.h"
#include "ctl/format/person.h"
#include "ctl/format/vcard.h"
#include "fuzz/check.h"
#include "kx/kxobj.h"
#include "kx/object.h"

namespace {

using Values = std::vector<std::pair<std::string, std::string>>;

// A person of all values that fit.
kx::Object PersonOf(const Values& values) {
  kx::Object person = kx::Build("obj-person");
  for (const auto& [name, text] : values) {
    const bool ok = client::SetPersonText(person.get(), name, text).ok();
    CHECK(!ok || client::PersonText(person.get(), name).size() < 512);
  }
  return person;
}

const char* g_version;  // of vCards

void CheckVcard(kx_object* person) {
  const std::string text = client::VcardOf(person, g_version);
  std::vector<client::Card> cards;
  CHECK(client::ParseVcards(text, &cards).ok());
  CHECK(cards.size() == 1 && cards[0].line == 1);
  kx::Object back = kx::Build("obj-person");
  for (const auto& [name, value] : cards[0].values) {
    // The parts that stand beside a combined name are exact.
    if (kx_field(name.c_str(), back.get()) == nullptr) continue;
    CHECK(client::SetPersonText(back.get(), name, value).ok());
  }
  for (const char* field : client::PersonFields()) {
    const char* there = kx::Text(person, field);
    const char* here = kx::Text(back.get(), field);
    CHECK((there == nullptr) == (here == nullptr));
    CHECK(there == nullptr || std::strcmp(there, here) == 0);
  }
}

void CheckCsv(const std::vector<std::string>& cells) {
  std::vector<client::CsvRow> rows;
  CHECK(client::ParseCsv(client::CsvLine(cells), &rows).ok());
  const bool blank = cells.size() == 1 && cells[0].empty();
  CHECK(rows.size() == (blank ? 0u : 1u));
  CHECK(blank || (rows[0].cells == cells && rows[0].line == 1));
}

void Csv(const std::string& text) {
  std::vector<client::CsvRow> rows;
  const client::Status status = client::ParseCsv(text, &rows);
  CHECK(status.ok() || status.text.starts_with("line "));
  std::vector<std::string> fields;
  int line = 0;
  for (const client::CsvRow& row : rows) {
    CHECK(row.line > line && !row.cells.empty());
    line = row.line;
    CheckCsv(row.cells);
    if (fields.empty()) {
      for (const std::string& cell : row.cells) {
        const char* name = client::FindPersonName(cell);
        fields.push_back(name != nullptr ? name : "notes");
      }
      continue;
    }
    Values values;
    for (std::size_t i = 0; i < row.cells.size() && i < fields.size(); ++i) {
      if (!row.cells[i].empty()) values.emplace_back(fields[i], row.cells[i]);
    }
    CheckVcard(PersonOf(values).get());
  }
}

void Vcards(const std::string& text) {
  std::vector<client::Card> cards;
  const client::Status status = client::ParseVcards(text, &cards);
  CHECK(status.ok() || status.text.find("line ") == 0 ||
        status.text == "the last card has no end");
  std::set<std::string> used;
  int line = 0;
  for (const client::Card& card : cards) {
    CHECK(card.line > line);
    line = card.line;
    kx::Object person = PersonOf(card.values);
    CheckVcard(person.get());
    client::MakeAlias(person.get(), client::PersonText(person.get(), "name"),
                      &used);
    CHECK(used.count(
              client::AliasKey(kx::TextOrEmpty(person.get(), "palias"))) == 1);
    CHECK(client::ToJson(person.get()).back() == '}');
  }
  CHECK(used.size() == cards.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // Rows do not depend on each other: a few show as much as many, and sooner.
  constexpr std::size_t kMost = 600;
  const std::string text(reinterpret_cast<const char*>(data) + 1,
                         std::min(size, kMost) - 1);
  g_version = data[0] / 2 % 2 == 0 ? "3.0" : "4.0";
  data[0] % 2 == 0 ? Csv(text) : Vcards(text);
  return 0;
}
