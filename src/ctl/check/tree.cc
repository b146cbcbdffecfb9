// The directories below the root: whether they are there, and whether only
// those can write and enter them who should (cm/cmtree.h).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "cm/cmtree.h"
#include "ctl/check/check.h"
#include "link/place.h"
#include "util/kutfile.h"

namespace client {
namespace {

// Whether all of the fax system's group write there, not the owner alone.
bool IsShared(const cm_tree_entry& entry) {
  return (entry.mode & S_IWGRP) != 0;
}

// The row of a path below the root, which is one of the table's.
const cm_tree_entry& Row(const char* path) {
  const auto rows = cm_tree();
  const auto row =
      std::find_if(rows.begin(), rows.end(), [&](const cm_tree_entry& entry) {
        return strcmp(entry.path, path) == 0;
      });
  return row != rows.end() ? *row : rows.front();
}

std::string Chmod(const cm_tree_entry& entry, const std::string& path) {
  char mode[8];
  snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(entry.mode));
  return std::string("chmod ") + mode + " " + path;
}

// Gives a directory that this process has just made its owner and mode.
bool SettleDir(int fd, const cm_tree_entry& entry) {
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  // Between making and opening, its place was the folder's owner's.
  if (st.st_uid != geteuid()) {
    errno = EPERM;  // another one by now
    return false;
  }
  const int uid = cm_owner_uid(entry.owner);
  const int gid = cm_owner_gid(entry.group);
  // An unprivileged repairer keeps what it makes.
  if (geteuid() == 0 && uid >= 0 && gid >= 0 &&
      fchown(fd, static_cast<uid_t>(uid), static_cast<gid_t>(gid)) != 0) {
    return false;
  }
  return fchmod(fd, entry.mode) == 0;
}

// Makes a directory and what is missing above it, from the root on. Most of the
// tree is the fax system's user's, who must not lead root elsewhere: each step
// goes by descriptor, and through no link.
bool MakeDir(const std::string& root, const std::string& path,
             const cm_tree_entry& entry) {
  const bool below = path.starts_with(root + "/");
  const std::string start = below ? root : Kut_dirname(path.c_str());
  std::string rest = below ? path.substr(root.size() + 1)
                           : std::string(Kut_basename(path.c_str()));
  UniqueFd dir(Kut_open(start.c_str(), O_PATH | O_DIRECTORY));
  while (dir.valid() && !rest.empty()) {
    const size_t slash = std::min(rest.find('/'), rest.size());
    const std::string name = rest.substr(0, slash);
    rest.erase(0, slash + 1);
    // Nobody enters it before it has its owner.
    const bool made = mkdirat(dir.get(), name.c_str(), 0700) == 0;
    if (!made && errno != EEXIST) return false;
    dir.reset(
        Kut_open_at(dir.get(), name.c_str(),
                    (made ? O_RDONLY : O_PATH) | O_DIRECTORY | O_NOFOLLOW));
    // What lies between is the fax server's, as the folder of the network
    // daemons is.
    if (made && dir.valid() &&
        !SettleDir(dir.get(), rest.empty() ? entry : Row("krtnet"))) {
      return false;
    }
  }
  return dir.valid();
}

void CheckMissing(Findings* findings, const std::string& path,
                  const cm_tree_entry& entry) {
  if (findings->Repairs()) {
    if (MakeDir(findings->root(), path, entry)) {
      return findings->Ok(path + ": made");
    }
    return findings->Fail(path + ": " + strerror(errno), "make it as root");
  }
  findings->Fail(path + " is missing", "krtctl check --fix");
}

// Whether nobody can write there but those who should; else it is told.
bool CheckWriters(Findings* findings, const std::string& path,
                  const cm_tree_entry& entry, const struct stat& st) {
  // One finding a directory, the worst first: its fix may settle the others. A
  // spool directory with the sticky bit is open to all on purpose.
  const bool for_group = IsShared(entry);
  const bool sticky = (st.st_mode & S_ISVTX) != 0;
  if ((st.st_mode & S_IWOTH) != 0 && !(for_group && sticky)) {
    findings->Fail(path + " can be written by everybody", Chmod(entry, path));
    return false;
  }
  if ((st.st_mode & S_IWGRP) != 0 && !for_group && st.st_gid != 0) {
    findings->Warn(path + " can be written by its group", "chmod g-w " + path);
    return false;
  }
  const int krt = cm_get_krt_uid();
  if (krt < 0 || st.st_uid == 0 || st.st_uid == geteuid() ||
      st.st_uid == static_cast<uid_t>(krt)) {
    return true;
  }
  const char* owner =
      entry.owner == cm_owner::kRoot ? "root" : cm_get_krt_uname();
  findings->Warn(path + " belongs to " + UserName(st.st_uid),
                 std::string("chown ") + owner + " " + path);
  return false;
}

// Whether the group, and nobody else, can work in a directory of its; else it
// is told. One that is open to all on purpose has the sticky bit.
bool CheckGroup(Findings* findings, const std::string& path,
                const struct stat& st) {
  const int gid = cm_get_krt_gid();
  if (gid < 0) return true;
  if (st.st_gid != static_cast<gid_t>(gid)) {
    findings->Warn(path + " does not belong to the group " + cm_get_krt_gname(),
                   std::string("chgrp ") + cm_get_krt_gname() + " " + path);
    return false;
  }
  if ((st.st_mode & S_IRWXG) != S_IRWXG) {
    findings->Warn(path + " is not open to its group", "chmod g+rwx " + path);
    return false;
  }
  if ((st.st_mode & S_IWOTH) == 0 && (st.st_mode & S_IRWXO) != 0) {
    findings->Warn(path + " can be entered by everybody",
                   "chmod o-rwx " + path);
    return false;
  }
  return true;
}

void CheckDir(Findings* findings, const std::string& path,
              const cm_tree_entry& entry) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return CheckMissing(findings, path, entry);
    return findings->Fail(path + ": " + strerror(errno), "look as root");
  }
  if (!S_ISDIR(st.st_mode)) {
    return findings->Fail(path + " is no directory", "move it away");
  }
  if (!CheckWriters(findings, path, entry, st)) return;
  if (IsShared(entry) && !CheckGroup(findings, path, st)) return;
  // Whether this user gets in, whatever mode and owner say: there are access
  // control lists, and groups that a session does not have yet.
  if (path == findings->place().spool &&
      access(path.c_str(), W_OK | X_OK) != 0) {
    return findings->Fail(path + ": " + strerror(errno),
                          "join the group of the directory");
  }
  findings->Ok(path);
}

}  // namespace

void CheckTree(Findings* findings) {
  const Place& place = findings->place();
  struct stat st;
  if (stat(findings->root(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    return findings->Fail(
        "root " + place.root + " (" + place.source + ") is no directory",
        "set KFAXDIR in " + std::string(kDefaultsFile) + " or give --root");
  }
  if (CheckWriters(findings, place.root, Row(""), st)) {
    findings->Ok("root " + place.root + " (" + place.source + ")");
  }
  for (const cm_tree_entry& entry : cm_tree()) {
    if (entry.maker != cm_maker::kCheck) continue;
    CheckDir(findings, place.root + "/" + entry.path, entry);
  }
  if (place.spool != cm_get_filspool_dir(findings->root())) {
    CheckDir(findings, place.spool, Row("krtnet/filspool"));
  }
}

}  // namespace client
