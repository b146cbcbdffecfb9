// The directories below the root: whether they are there, and whether only
// those can write and enter them who should.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "ctl/check/check.h"
#include "link/place.h"
#include "util/kutfile.h"

namespace client {
namespace {

// Who writes there: the fax server alone; an administrator alone, since the
// daemon runs or believes what it finds; or all of the fax system's group.
enum class Writers { kServer, kAdmin, kGroup };

struct TreeDir {
  const char* (*path)(const char* root);
  Writers writers;
};

constexpr TreeDir kTree[] = {
    {cm_get_krtnet_dir, Writers::kServer},
    {cm_get_filspool_dir, Writers::kGroup},
    {cm_get_netspool_dir, Writers::kGroup},
    {cm_get_sessions_dir, Writers::kGroup},
    {cm_get_queued_dir, Writers::kGroup},
    {cm_get_netreq_dir, Writers::kGroup},
    {cm_get_faxq_dir, Writers::kServer},
    {cm_get_requests_dir, Writers::kServer},
    {cm_get_expired_dir, Writers::kServer},
    {cm_get_temp_dir, Writers::kServer},
    {cm_get_logs_dir, Writers::kServer},
    {cm_get_infax_dir, Writers::kServer},
    {cm_get_grequests_dir, Writers::kServer},
    {cm_get_covers_dir, Writers::kAdmin},
    {cm_get_class_dir, Writers::kAdmin},
    {cm_get_format_dir, Writers::kAdmin},
    {cm_get_groups_dir, Writers::kAdmin},
    {cm_get_tnp_dir, Writers::kAdmin},
};

// The group of a spool directory passes on to what is put there.
mode_t ModeFor(Writers writers) {
  return writers == Writers::kGroup ? 02770 : 0755;
}

// Gives a directory that this process has just made its owner and mode.
bool SettleDir(int fd, Writers writers) {
  struct stat st;
  if (fstat(fd, &st) != 0) return false;
  if (st.st_uid != geteuid()) {
    errno = EPERM;  // another one by now
    return false;
  }
  const bool admin = writers == Writers::kAdmin;
  const int uid = admin ? 0 : cm_get_krt_uid();
  const int gid = admin ? 0 : cm_get_krt_gid();
  // An unprivileged repairer keeps what it makes.
  if (geteuid() == 0 && uid >= 0 && gid >= 0 &&
      fchown(fd, static_cast<uid_t>(uid), static_cast<gid_t>(gid)) != 0) {
    return false;
  }
  return fchmod(fd, ModeFor(writers)) == 0;
}

// Makes a directory and what is missing above it, from the root on. Most of the
// tree is the fax system's user's, who must not lead root elsewhere: each step
// goes by descriptor, and through no link.
bool MakeDir(const std::string& root, const std::string& path,
             Writers writers) {
  const bool below = path.starts_with(root + "/");
  const std::string start = below ? root : Kut_dirname(path.c_str());
  std::string rest = below ? path.substr(root.size() + 1)
                           : std::string(Kut_basename(path.c_str()));
  UniqueFd dir(Kut_open(start.c_str(), O_PATH | O_DIRECTORY));
  while (dir.valid() && !rest.empty()) {
    const size_t slash = std::min(rest.find('/'), rest.size());
    const std::string name = rest.substr(0, slash);
    rest.erase(0, slash + 1);
    const bool made = mkdirat(dir.get(), name.c_str(), 0700) == 0;
    if (!made && errno != EEXIST) return false;
    dir.reset(
        Kut_open_at(dir.get(), name.c_str(),
                    (made ? O_RDONLY : O_PATH) | O_DIRECTORY | O_NOFOLLOW));
    if (made && dir.valid() &&
        !SettleDir(dir.get(), rest.empty() ? writers : Writers::kServer)) {
      return false;
    }
  }
  return dir.valid();
}

void CheckMissing(Findings* findings, const std::string& path,
                  Writers writers) {
  if (findings->Repairs()) {
    if (MakeDir(findings->root(), path, writers))
      return findings->Ok(path + ": made");
    return findings->Fail(path + ": " + std::strerror(errno),
                          "make it as root");
  }
  findings->Fail(path + " is missing", "krtctl check --fix");
}

// Whether nobody can write there but those who should; else it is told.
bool CheckWriters(Findings* findings, const std::string& path, Writers writers,
                  const struct stat& st) {
  const bool for_group = writers == Writers::kGroup;
  const bool sticky = (st.st_mode & S_ISVTX) != 0;
  if ((st.st_mode & S_IWOTH) != 0 && !(for_group && sticky)) {
    findings->Fail(path + " can be written by everybody",
                   (for_group ? "chmod 2770 " : "chmod 0755 ") + path);
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
  const char* owner = writers == Writers::kAdmin ? "root" : cm_get_krt_uname();
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

void CheckDir(Findings* findings, const std::string& path, Writers writers) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return CheckMissing(findings, path, writers);
    return findings->Fail(path + ": " + std::strerror(errno), "look as root");
  }
  if (!S_ISDIR(st.st_mode)) {
    return findings->Fail(path + " is no directory", "move it away");
  }
  if (!CheckWriters(findings, path, writers, st)) return;
  if (writers == Writers::kGroup && !CheckGroup(findings, path, st)) return;
  if (path == findings->place().spool &&
      access(path.c_str(), W_OK | X_OK) != 0) {
    return findings->Fail(path + ": " + std::strerror(errno),
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
  if (CheckWriters(findings, place.root, Writers::kServer, st)) {
    findings->Ok("root " + place.root + " (" + place.source + ")");
  }
  for (const TreeDir& dir : kTree) {
    CheckDir(findings, dir.path(findings->root()), dir.writers);
  }
  if (place.spool != cm_get_filspool_dir(findings->root())) {
    CheckDir(findings, place.spool, Writers::kGroup);
  }
}

}  // namespace client
