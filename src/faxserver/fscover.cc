#include "faxserver/fscover.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fslog.h"
#include "faxserver/fsnames.h"
#include "faxserver/fspopen.h"
#include "faxserver/fsres.h"
#include "util/kutdir.h"
#include "util/kuterr.h"
#include "util/kutfile.h"

namespace {

constexpr size_t kLineSize = 1024;
constexpr int kFields = 6;

// The fields of one entry, null where it has none.
struct Entry {
  const char* field[kFields] = {};
};

struct Letter {
  char letter;
  int value;
};
constexpr Letter kTypes[] = {{'R', kx_tag_req}, {'r', kx_tag_req},
                             {'O', kx_tag_opt}, {'o', kx_tag_opt},
                             {'S', kx_tag_sys}, {'s', kx_tag_sys}};
constexpr Letter kFonts[] = {{'F', kx_fnt_fixed},
                             {'f', kx_fnt_fixed},
                             {'P', kx_fnt_prop},
                             {'p', kx_fnt_prop}};

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' ||
         c == '\f';
}

// Takes the next entry apart in place, quotes removed; the last field has the
// rest of it. Null at the end of the line, else where to go on.
char* NextEntry(char* at, Entry* entry) {
  while (IsBlank(*at)) ++at;
  if (*at == '\0') return nullptr;
  *entry = {};
  int count = 0;
  char* out = at;
  entry->field[count++] = out;
  bool quoted = false;
  for (; *at != '\0' && (quoted || !IsBlank(*at)); ++at) {
    if (*at == '"') {
      quoted = !quoted;
    } else if (*at == ':' && !quoted && count < kFields) {
      *out++ = '\0';
      entry->field[count++] = out;
    } else {
      *out++ = *at;
    }
  }
  // The terminator may fall on the blank where the reading goes on.
  char* next = *at != '\0' ? at + 1 : at;
  *out = '\0';
  return next;
}

template <size_t N>
void SetLetter(kx_object* tag, const char* field, const char* text,
               const Letter (&letters)[N]) {
  if (text == nullptr || strlen(text) != 1) return;
  for (const Letter& row : letters) {
    if (row.letter == *text) kx::SetEnum(tag, field, row.value);
  }
}

// The tag of an entry; null for one that is the fax server's own to fill in, or
// that has a name which a client could not send back.
kx::Object MakeTag(const Entry& entry) {
  const char* name = entry.field[0];
  if (strcmp(name, "FXSENTON") == 0 || strcmp(name, "FXPAGES") == 0) {
    return nullptr;
  }
  kx::Object tag = fx_build("obj-cvrtag");
  if (kx::SetText(tag.get(), "tagname", name) != 0) {
    fx_logf("Tag name %s is too long", name);
    return nullptr;
  }
  SetLetter(tag.get(), "tagtype", entry.field[1], kTypes);
  SetLetter(tag.get(), "fonttype", entry.field[2], kFonts);
  kx::SetText(tag.get(), "fontname", entry.field[3]);
  kx::SetText(tag.get(), "maxlen", entry.field[4]);
  kx::SetText(tag.get(), "tagdesc", entry.field[5]);
  return tag;
}

// The file of a cover page, or "" with errno. Of several the first by name, so
// that the answer does not hang on the order of a directory.
std::string FindCover(const char* root, const char* name) {
  DirReader dir;
  const char* covers = cm_get_covers_dir(root);
  std::vector<std::string> names;
  if (dir.Open(covers) != 0 || !fx_visible_names(&dir, &names)) return "";
  for (const std::string& file : names) {
    std::string page = file;
    Kut_rmv_file_ext(page.data());
    if (strcmp(page.c_str(), name) != 0) continue;
    const cm_path path = cm_join_path(covers, file.c_str());
    if (Kut_is_exec_file(path.text) != 0) return path.text;
  }
  errno = ENOENT;
  return "";
}

bool HasTag(kx_object* tags, const char* name) {
  for (kx_object* tag : kx::Elements(tags)) {
    if (strcmp(kx::TextOrEmpty(tag, "tagname"), name) == 0) return true;
  }
  return false;
}

// Whether every wanted tag has a name and is among the tags of the page.
bool HasAll(kx_object* tags, kx_object* wanted) {
  for (kx_object* want : kx::Elements(wanted)) {
    const std::string name = kx::TextOrEmpty(want, "tagname");
    if (name.empty() || !HasTag(tags, name.c_str())) return false;
  }
  return true;
}

}  // namespace

kx_object* fx_parse_cover_tags(char* line) {
  return fx_guarded([&]() -> kx_object* {
    kx::ListBuilder list;
    Entry entry;
    for (char* at = NextEntry(line, &entry); at != nullptr;
         at = NextEntry(at, &entry)) {
      kx::Object tag = MakeTag(entry);
      if (tag != nullptr) fx_append(&list, std::move(tag));
    }
    return fx_give(list.Take());
  });
}

kx_object* fx_get_cover_tags(const char* root, const char* name) {
  return fx_guarded([&]() -> kx_object* {
    if (!cm_is_plain_name(name)) return fx_null(kx_err_data);
    const std::string path = FindCover(root, name);
    if (path.empty()) {
      return fx_null(Kut_is_shortage(errno) ? kx_err_system : kx_err_data);
    }
    const std::string command = fx_shell_word(path.c_str()) + " -dump";
    FILE* pipe = fx_popen(command.c_str());
    if (pipe == nullptr) return fx_null(kx_err_system);
    char line[kLineSize];
    const bool got = fgets(line, sizeof line, pipe) != nullptr;
    const bool failed = ferror(pipe) != 0;
    const bool ended = fx_pclose(pipe) != -1;
    if (got && ended) return fx_parse_cover_tags(line);
    errno = EIO;
    return fx_null(failed ? kx_err_system : kx_err_io);
  });
}

kx_object* fx_cover_matchlist(const char* root, kx_object* tags) {
  return fx_guarded([&]() -> kx_object* {
    const kx::Object pages(fx_res_allcvr_list(root));
    if (kx_errno != kx_err_none) return nullptr;
    kx::ListBuilder matches;
    for (kx_object* page : kx::Elements(pages.get())) {
      const std::string name = kx::TextOrEmpty(page, "rname");
      const kx::Object has(fx_get_cover_tags(root, name.c_str()));
      if (kx_errno != kx_err_none && fx_is_shortage()) return nullptr;
      if (kx_errno != kx_err_none || !HasAll(has.get(), tags)) continue;
      kx::Object match(Kfx_Copy_Obj(page));
      if (match == nullptr) return nullptr;
      fx_append(&matches, std::move(match));
    }
    return fx_give(matches.Take());
  });
}
