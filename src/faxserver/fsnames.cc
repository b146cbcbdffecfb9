#include "faxserver/fsnames.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "util/kutfile.h"

bool fx_numbered_names(DirReader* dir, const char* prefix,
                       std::vector<fx_numbered>* names) {
  const size_t skip = strlen(prefix);
  while (const char* name = dir->Next()) {
    if (strncmp(name, prefix, skip) != 0) continue;
    const long number = fx_plain_number(name + skip);
    if (number >= 0) names->push_back({number, name});
  }
  if (errno != 0) return false;
  std::sort(names->begin(), names->end(),
            [](const fx_numbered& a, const fx_numbered& b) {
              return a.number != b.number ? a.number < b.number
                                          : a.name < b.name;
            });
  return true;
}

bool fx_is_visible_name(const char* name) {
  const char* ext = Kut_get_file_ext(name);
  return *name != '.' && (ext == nullptr || strcmp(ext, "tmp") != 0);
}

bool fx_visible_names(DirReader* dir, std::vector<std::string>* names) {
  while (const char* name = dir->Next()) {
    if (fx_is_visible_name(name)) names->emplace_back(name);
  }
  if (errno != 0) return false;
  std::sort(names->begin(), names->end());
  return true;
}

long fx_plain_number(const char* text) {
  const char* end = text + strlen(text);
  int32_t number = -1;
  const auto [stop, error] = std::from_chars(text, end, number);
  const bool plain = *text >= '0' && *text <= '9' && stop == end;
  return plain && error == std::errc() ? number : -1;
}
