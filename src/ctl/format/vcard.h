// Persons as vCards, versions 3.0 and 4.0.
//
// - Standard properties hold what they can: N, FN, ORG, NOTE, TEL, ADR, EMAIL.
//   What they cannot say exactly (the alias, the parts of phone numbers,
//   "info") is in properties X-KRT-<FIELD>, which win when a card is read back.
#ifndef CTL_FORMAT_VCARD_H_
#define CTL_FORMAT_VCARD_H_

#include <string>
#include <utility>
#include <vector>

#include "kx/kfx.h"
#include "link/status.h"

namespace client {

struct Card {
  int line;  // where it begins, from 1
  // Field names of persons (combined ones too) and their texts.
  std::vector<std::pair<std::string, std::string>> values;
};

// Reads all cards of a file. Properties that no field holds are left out.
// krt_bad_data names the line.
Status ParseVcards(const std::string& text, std::vector<Card>* cards);

// A person as a card. `version` is "3.0" or "4.0".
std::string VcardOf(kx_object* person, const std::string& version);

}  // namespace client

#endif  // CTL_FORMAT_VCARD_H_
