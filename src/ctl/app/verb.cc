#include "ctl/app/verb.h"

#include <algorithm>
#include <cstring>

namespace client {

const VerbRow* VerbTable::Find(const std::string& name) const {
  const auto row =
      std::find_if(verbs.begin(), verbs.end(),
                   [&](const VerbRow& one) { return name == one.name; });
  return row == verbs.end() ? nullptr : &*row;
}

std::vector<const OptionRow*> VerbTable::Options(const VerbRow* verb) const {
  std::vector<const OptionRow*> rows;
  for (const OptionRow& row : options) rows.push_back(&row);
  for (const VerbRow& one : verbs) {
    if (verb != nullptr && &one != verb) continue;
    for (const OptionRow& row : one.options) rows.push_back(&row);
  }
  return rows;
}

std::vector<std::string> VerbTable::NextWords(const std::string& words) const {
  const size_t skip = words.empty() ? 0 : words.size() + 1;
  std::vector<std::string> next;
  for (const VerbRow& row : verbs) {
    if (!NameBegins(row.name, words) || strlen(row.name) <= skip) continue;
    std::string word = row.name + skip;
    word.resize(std::min(word.size(), word.find(' ')));
    if (std::find(next.begin(), next.end(), word) == next.end()) {
      next.push_back(word);
    }
  }
  return next;
}

bool NameBegins(const char* name, const std::string& words) {
  return words.empty() ||
         (strncmp(name, words.c_str(), words.size()) == 0 &&
          (name[words.size()] == '\0' || name[words.size()] == ' '));
}

}  // namespace client
