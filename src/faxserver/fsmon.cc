#include "faxserver/fsmon.h"

#include <cstring>
#include <string>
#include <utility>

#include "cm/cmlimits.h"
#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfolder.h"
#include "faxserver/fsuser.h"
#include "util/kutfile.h"
#include "util/kutstr.h"

namespace {

constexpr size_t kLineSize = 128;
constexpr char kAllowAll[] = "ALLOWALL";

struct Monitors {
  bool allow_all = false;
  kx::ListBuilder excluded;
  kx::ListBuilder included;
};

// Whether a name, written as a line, is read back as itself.
bool IsLine(const char* name, bool excluded) {
  std::string stripped = name;
  if (stripped != Kut_strip(stripped.data())) return false;
  if (strpbrk(name, "\r\n") != nullptr) return false;
  return excluded ||
         (*name != '!' && *name != '#' && strcmp(name, kAllowAll) != 0);
}

void AddName(kx::ListBuilder* list, const char* name) {
  kx::Object resource = fx_build("obj-resource");
  if (kx::SetText(resource.get(), "rname", name) != 0) return;
  fx_append(list, std::move(resource));
}

void ReadLine(char* line, Monitors* monitors) {
  if (*line == '\0' || *line == '#') return;
  if (strcmp(line, kAllowAll) == 0) {
    monitors->allow_all = true;
    return;
  }
  const bool excluded = *line == '!';
  const char* name = excluded ? Kut_strip(line + 1) : line;
  // What is read can be written: clients send back what they got.
  if (*name == '\0' || !IsLine(name, excluded)) return;
  AddName(excluded ? &monitors->excluded : &monitors->included, name);
}

// The file's content. False for a name that could not be read back.
bool Format(kx_object* names, bool allow_all, std::string* content) {
  *content = allow_all ? std::string(kAllowAll) + "\n" : "";
  for (kx_object* entry : kx::Elements(names)) {
    const char* name = kx::Text(entry, "rname");
    if (name == nullptr) continue;
    if (!IsLine(name, allow_all)) return false;
    *content += allow_all ? "!" : "";
    *content += name;
    *content += '\n';
  }
  return true;
}

}  // namespace

kx_object* fx_get_monlist(const char* root, const char* user) {
  return fx_guarded([&]() -> kx_object* {
    if (!fx_is_valid_user(root, user)) return fx_null(kx_err_user);
    kx::Object monitor = kx::Build("obj-monitor");
    if (monitor == nullptr) return nullptr;
    kx::SetText(monitor.get(), "clientid", user);
    Monitors monitors;
    const fx_stream stream =
        fx_open_user_stream(root, user, cm_get_monitors_file(root, user));
    // A client that changes the list sends all of it back: what could not be
    // read would be lost.
    if (stream == nullptr && Kut_is_shortage(errno)) {
      return fx_null(kx_err_system);
    }
    char line[kLineSize];
    long lines = 0;
    while (stream != nullptr && fx_read_line(stream.get(), line, sizeof line)) {
      if (++lines > cm_limit(cm_limit_id::kMessageLines)) {
        return fx_null(kx_err_too_long);
      }
      ReadLine(line, &monitors);
    }
    if (stream != nullptr && ferror(stream.get()) != 0) {
      return fx_null(kx_err_system);
    }
    const bool all = monitors.allow_all;
    kx::SetEnum(monitor.get(), "montype", all ? kx_mon_incall : kx_mon_excall);
    kx::SetChild(monitor.get(), "names",
                 all ? monitors.excluded.Take() : monitors.included.Take());
    return fx_give(std::move(monitor));
  });
}

int fx_set_monlist(const char* root, kx_object* monitor) {
  return fx_guarded([&]() -> int {
    const char* user = kx::Text(monitor, "clientid");
    const int type = kx::Enum(monitor, "montype");
    std::string content;
    if (!fx_is_valid_user(root, user) ||
        (type != kx_mon_incall && type != kx_mon_excall) ||
        !Format(kx::Child(monitor, "names"), type == kx_mon_incall, &content)) {
      return fx_fail(kx_err_data);
    }
    const char* name = Kut_basename(cm_get_monitors_file(root, user));
    const cm_folder options = fx_make_options(root, user);
    const FileIdentity owner = options.Enter();
    FileReplacer file;
    const bool done =
        owner.held() && fx_replace_in(options, name, &file) == 0 &&
        Kut_write_full(file.fd(), content.data(), content.size()) == 0 &&
        file.Commit() == 0;
    return done ? fx_ok() : fx_fail(kx_err_system);
  });
}
