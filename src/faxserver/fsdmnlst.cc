#include "faxserver/fsdmnlst.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "cm/cmdaemon.h"
#include "cm/cmpaths.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfolder.h"
#include "util/kutfile.h"
#include "util/kutguard.h"
#include "util/kutio.h"
#include "util/kutproc.h"

namespace {

constexpr mode_t kListMode = 0664;

// Whether the process can be signalled, which one that runs may not let the
// caller do.
bool Answers(pid_t pid) { return pid > 0 && kill(pid, 0) == 0; }

// All entries of the list in its order. False with errno when it cannot be read
// to its end.
bool ReadList(const char* kfaxdir, std::vector<cm_daemon>* entries) {
  const fx_stream list = fx_open_stream(cm_get_dmnlist_file(kfaxdir));
  return list != nullptr && cm_read_daemons(list.get(), entries);
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

int fx_add_daemon_list(const char* kfaxdir, const char* name, pid_t pid) {
  return Kut_guarded([&]() -> int {
    const UniqueFd list = OpenToAppend(kfaxdir);
    if (!list.valid()) return -1;
    // One write: entries of daemons that start at once do not mix.
    const std::string entry = FormatEntry(pid, name);
    return Kut_write_full(list.get(), entry.data(), entry.size());
  });
}

pid_t fx_chk_daemon_list(const char* kfaxdir, const char* name) {
  return Kut_guarded([&]() -> pid_t {
    std::vector<cm_daemon> entries;
    if (!ReadList(kfaxdir, &entries)) return -1;
    for (const cm_daemon& entry : entries) {
      if (entry.name == name && Answers(entry.pid)) return entry.pid;
    }
    return 0;
  });
}

int fx_upd_daemon_list(const char* kfaxdir, const char* name) {
  return Kut_guarded([&]() -> int {
    std::vector<cm_daemon> entries;
    if (!ReadList(kfaxdir, &entries) && errno != ENOENT) return -1;
    std::string text;
    for (const cm_daemon& entry : entries) {
      if (entry.name == name || !Kut_process_exists(entry.pid)) continue;
      text += FormatEntry(entry.pid, entry.name.c_str());
    }
    const cm_folder folder =
        cm_open_folder(kfaxdir, cm_get_krtnet_dir(kfaxdir));
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
  });
}

int fx_kill_daemons(const char* kfaxdir, const char* name) {
  return Kut_guarded([&]() -> int {
    std::vector<cm_daemon> entries;
    if (!ReadList(kfaxdir, &entries)) return -1;
    for (const cm_daemon& entry : entries) {
      if (entry.name == name && entry.pid > 0) kill(entry.pid, SIGTERM);
    }
    return 0;
  });
}
