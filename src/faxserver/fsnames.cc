#include "faxserver/fsnames.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>

#include "cm/cmlimits.h"
#include "faxserver/fslog.h"
#include "util/kutfile.h"

namespace {

// Whether there may be one more.
bool HasRoom(size_t names, size_t most) {
  if (names < most) return true;
  fx_logf("A directory has more than %zu names", most);
  errno = EFBIG;
  return false;
}

}  // namespace

bool fx_numbered_names(DirReader* dir, const char* prefix,
                       std::vector<fx_numbered>* names, size_t most) {
  const size_t skip = strlen(prefix);
  while (const char* name = dir->Next()) {
    if (strncmp(name, prefix, skip) != 0) continue;
    const long number = fx_plain_number(name + skip);
    if (number < 0) continue;
    if (!HasRoom(names->size(), most)) return false;
    names->push_back({number, name});
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

bool fx_visible_names(DirReader* dir, std::vector<std::string>* names,
                      size_t most) {
  while (const char* name = dir->Next()) {
    if (!fx_is_visible_name(name)) continue;
    if (!HasRoom(names->size(), most)) return false;
    names->emplace_back(name);
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

size_t fx_users_names() {
  return static_cast<size_t>(cm_limit(cm_limit_id::kObjectBytes) / 1024);
}
