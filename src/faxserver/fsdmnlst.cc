#include "faxserver/fsdmnlst.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfolder.h"
#include "kx/kfx.h"
#include "util/kutfile.h"
#include "util/kutio.h"
#include "util/kutstr.h"

namespace {

struct Entry {
  pid_t pid;
  std::string name;
};

constexpr size_t kLineSize = 4096;
constexpr mode_t kListMode = 0664;

bool IsAlive(pid_t pid) { return pid > 0 && kill(pid, 0) == 0; }

// All entries of the list in its order. False with errno when it cannot be read
// to its end.
bool ReadList(const char* kfaxdir, std::vector<Entry>* entries) {
  const fx_stream list = fx_open_stream(cm_get_dmnlist_file(kfaxdir));
  if (list == nullptr) return false;
  char line[kLineSize];
  while (fgets(line, sizeof line, list.get()) != nullptr) {
    const std::string text = Kut_strip(line);
    const size_t colon = text.find(':');
    if (colon == std::string::npos) break;
    entries->push_back({Kfx_Str_To_Long(text.c_str()), text.substr(colon + 1)});
  }
  if (ferror(list.get()) == 0) return true;
  errno = EIO;
  return false;
}

std::string FormatEntry(pid_t pid, const char* name) {
  return std::to_string(pid) + ":" + name + "\n";
}

// The list lies in a folder of the fax system's: a daemon that is root must not
// be led to append to another file.
UniqueFd OpenToAppend(const char* kfaxdir) {
  UniqueFd list(Kut_open(
      cm_get_dmnlist_file(kfaxdir),
      O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK, kListMode));
  struct stat st;
  if (!list.valid() || fstat(list.get(), &st) != 0) return UniqueFd();
  if (S_ISREG(st.st_mode) && st.st_nlink == 1) return list;
  errno = EINVAL;
  return UniqueFd();
}

}  // namespace

int fx_add_daemon_list(const char* kfaxdir, const char* name, pid_t pid) try {
  const UniqueFd list = OpenToAppend(kfaxdir);
  if (!list.valid()) return -1;
  // One write: entries of daemons that start at once do not mix.
  const std::string entry = FormatEntry(pid, name);
  return Kut_write_full(list.get(), entry.data(), entry.size());
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return -1;
}

pid_t fx_chk_daemon_list(const char* kfaxdir, const char* name) try {
  std::vector<Entry> entries;
  if (!ReadList(kfaxdir, &entries)) return -1;
  for (const Entry& entry : entries) {
    if (entry.name == name && IsAlive(entry.pid)) return entry.pid;
  }
  return 0;
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return -1;
}

int fx_upd_daemon_list(const char* kfaxdir, const char* name) try {
  std::vector<Entry> entries;
  if (!ReadList(kfaxdir, &entries) && errno != ENOENT) return -1;
  std::string text;
  for (const Entry& entry : entries) {
    if (entry.name == name || !IsAlive(entry.pid)) continue;
    text += FormatEntry(entry.pid, entry.name.c_str());
  }
  const cm_folder folder = cm_open_folder(kfaxdir, cm_get_krtnet_dir(kfaxdir));
  const FileIdentity owner = folder.Enter();
  const char* name_of_list = Kut_basename(cm_get_dmnlist_file(kfaxdir));
  FileReplacer list;
  if (!folder.valid() || !owner.held() ||
      list.Open(name_of_list, kListMode, folder.fd()) != 0) {
    return -1;
  }
  if (Kut_write_full(list.fd(), text.data(), text.size()) != 0) return -1;
  fx_give_to_krt(list.fd(), kListMode);
  return list.Commit();
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return -1;
}

int fx_kill_daemons(const char* kfaxdir, const char* name) try {
  std::vector<Entry> entries;
  if (!ReadList(kfaxdir, &entries)) return -1;
  for (const Entry& entry : entries) {
    if (entry.name == name && entry.pid > 0) kill(entry.pid, SIGTERM);
  }
  return 0;
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return -1;
}
