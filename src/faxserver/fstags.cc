#include "faxserver/fstags.h"

#include <strings.h>

#include <cerrno>
#include <cstring>

#include "cm/cmpaths.h"
#include "faxserver/fsfile.h"
#include "util/kuterr.h"
#include "util/kutstr.h"

namespace {

constexpr size_t kLineSize = 4096;
constexpr size_t kValueSize = 256;

struct Tag {
  const char* name;
  char value[kValueSize];
};

constinit bool g_loaded = false;
constinit Tag g_tags[] = {
    {"tnp", ""},      {"queue", ""},     {"sendres", ""},
    {"priority", ""}, {"tsi", ""},       {"mailaddr", ""},
    {"maxtrys", ""},  {"retrymins", ""}, {"exphours", ""},
};

Tag* Find(const char* name) {
  for (Tag& tag : g_tags) {
    if (strcasecmp(tag.name, name) == 0) return &tag;
  }
  return nullptr;
}

// Takes a line apart; a value that is too long is none rather than another one.
void SetFromLine(char* line) {
  char* equals = strchr(line, '=');
  if (equals == nullptr) return;
  *equals = '\0';
  Tag* tag = Find(Kut_strip(line));
  const char* value = Kut_strip(equals + 1);
  if (tag == nullptr || strlen(value) >= kValueSize) return;
  Kut_strcpyz(tag->value, value, kValueSize);
}

}  // namespace

bool fx_load_tags(const char* root) {
  if (g_loaded) return true;
  const fx_stream stream = fx_open_stream(cm_get_envtags_file(root));
  if (stream == nullptr && Kut_is_shortage(errno)) return false;
  char line[kLineSize];
  while (stream != nullptr && fx_read_line(stream.get(), line, sizeof line)) {
    if (*line != '\0' && *line != '#') SetFromLine(line);
  }
  if (stream != nullptr && ferror(stream.get()) != 0) {
    fx_reset_tags();
    errno = EIO;
    return false;
  }
  return g_loaded = true;
}

const char* fx_get_tag(const char* root, const char* name) {
  fx_load_tags(root);
  const Tag* tag = Find(name);
  return tag != nullptr ? tag->value : "";
}

void fx_reset_tags() {
  g_loaded = false;
  for (Tag& tag : g_tags) tag.value[0] = '\0';
}
