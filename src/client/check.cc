#include "client/check.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/actions.h"
#include "client/format.h"
#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "util/kutdir.h"

namespace client {
namespace {

constexpr mode_t kDirMode = 0775;
// The group of a spool directory passes on to what is put there.
constexpr mode_t kSpoolMode = 02770;
constexpr unsigned long long kLittleSpace = 100'000'000;

struct TreeDir {
  const char* (*path)(const char* root);
  mode_t mode;
};

constexpr TreeDir kTree[] = {
    {cm_get_krtnet_dir, kDirMode},     {cm_get_filspool_dir, kSpoolMode},
    {cm_get_netspool_dir, kSpoolMode}, {cm_get_sessions_dir, kSpoolMode},
    {cm_get_queued_dir, kSpoolMode},   {cm_get_netreq_dir, kSpoolMode},
    {cm_get_faxq_dir, kDirMode},       {cm_get_requests_dir, kDirMode},
    {cm_get_expired_dir, kDirMode},    {cm_get_temp_dir, kSpoolMode},
    {cm_get_logs_dir, kDirMode},       {cm_get_infax_dir, kDirMode},
    {cm_get_covers_dir, kDirMode},     {cm_get_class_dir, kDirMode},
    {cm_get_format_dir, kDirMode},     {cm_get_groups_dir, kDirMode},
    {cm_get_tnp_dir, kDirMode},        {cm_get_grequests_dir, kDirMode},
};

std::string ErrnoText() { return std::strerror(errno); }

bool MakeDir(const std::string& path, mode_t mode) {
  if (Kut_make_dir_path(path.c_str()) != 0) return false;
  const int uid = cm_get_krt_uid();
  const int gid = cm_get_krt_gid();
  // An unprivileged repairer keeps what it makes.
  if (geteuid() == 0 && uid >= 0 && gid >= 0 &&
      chown(path.c_str(), static_cast<uid_t>(uid), static_cast<gid_t>(gid)) !=
          0) {
    return false;
  }
  return chmod(path.c_str(), mode) == 0;
}

void CheckMissing(Findings* findings, const std::string& path, mode_t mode) {
  if (findings->Repairs()) {
    if (MakeDir(path, mode)) return findings->Ok(path + ": made");
    return findings->Fail(path + ": " + ErrnoText(), "make it as root");
  }
  findings->Fail(path + " is missing", "krtctl check --fix");
}

void CheckMode(Findings* findings, const std::string& path,
               const struct stat& st) {
  const int gid = cm_get_krt_gid();
  const bool spool = path == findings->place().spool;
  if ((st.st_mode & S_IWOTH) != 0 && (st.st_mode & S_ISVTX) == 0) {
    const std::string what = path + " can be written by everybody";
    if (spool) return findings->Fail(what, "chmod 2770 " + path);
    return findings->Warn(what, "chmod o-w " + path);
  }
  if (gid >= 0 && st.st_gid != static_cast<gid_t>(gid)) {
    return findings->Warn(
        path + " does not belong to the group " + cm_get_krt_gname(),
        std::string("chgrp ") + cm_get_krt_gname() + " " + path);
  }
  if (gid >= 0 && (st.st_mode & 0070) != 0070) {
    return findings->Warn(path + " is not open to its group",
                          "chmod g+rwx " + path);
  }
  if (spool && access(path.c_str(), W_OK | X_OK) != 0) {
    return findings->Fail(path + ": " + ErrnoText(),
                          "join the group of the directory");
  }
  findings->Ok(path);
}

void CheckDir(Findings* findings, const std::string& path, mode_t mode) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return CheckMissing(findings, path, mode);
    return findings->Fail(path + ": " + ErrnoText(), "look as root");
  }
  if (!S_ISDIR(st.st_mode)) {
    return findings->Fail(path + " is no directory", "move it away");
  }
  CheckMode(findings, path, st);
}

}  // namespace

void Findings::Show(const char* state, Paint paint, const std::string& what,
                    const std::string& fix) {
  Output& out = app_.out();
  std::string padded = state;
  padded.resize(4, ' ');
  std::string line = out.Painted(padded, paint) + "  " + Printable(what);
  if (!fix.empty()) line += "; fix: " + Printable(fix);
  const bool silent = app_.Has("quiet") && fix.empty();
  std::vector<JsonMember> members = {{"type", JsonString("check")},
                                     {"state", JsonString(state)},
                                     {"what", JsonString(what)}};
  if (!fix.empty()) members.emplace_back("fix", JsonString(fix));
  out.Result(members, silent ? "" : line);
}

void Findings::Ok(const std::string& what) {
  Show("ok", Paint::kGood, what, "");
}

void Findings::Warn(const std::string& what, const std::string& fix) {
  Show("warn", Paint::kWarning, what, fix);
}

void Findings::Fail(const std::string& what, const std::string& fix) {
  Show("FAIL", Paint::kBad, what, fix);
  app_.Worsen(krt_refused);
}

bool Findings::Repairs(const std::string& question) {
  if (!app_.Has("fix") || app_.dry_run()) return false;
  return question.empty() || app_.Confirm(question);
}

void CheckTree(Findings* findings) {
  const Place& place = findings->place();
  struct stat st;
  if (stat(findings->root(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    return findings->Fail(
        "root " + place.root + " (" + place.source + ") is no directory",
        "set KFAXDIR in " + std::string(kDefaultsFile) + " or give --root");
  }
  findings->Ok("root " + place.root + " (" + place.source + ")");
  for (const TreeDir& dir : kTree) {
    CheckDir(findings, dir.path(findings->root()), dir.mode);
  }
  if (place.spool != cm_get_filspool_dir(findings->root())) {
    CheckDir(findings, place.spool, kSpoolMode);
  }
}

void CheckSystemUser(Findings* findings) {
  const std::string user = cm_get_krt_uname();
  const std::string group = cm_get_krt_gname();
  cm_get_krt_gid() >= 0
      ? findings->Ok("group " + group)
      : findings->Fail("no group " + group, "groupadd --system " + group);
  cm_get_krt_uid() >= 0
      ? findings->Ok("user " + user)
      : findings->Fail("no user " + user,
                       "useradd --system --gid " + group + " " + user);
}

void CheckSpace(Findings* findings) {
  struct statvfs fs;
  const std::string& spool = findings->place().spool;
  if (statvfs(spool.c_str(), &fs) != 0) return;
  const unsigned long long left =
      static_cast<unsigned long long>(fs.f_bavail) * fs.f_frsize;
  const std::string what = Bytes(left) + " free at " + spool;
  if (left == 0 || (fs.f_files > 0 && fs.f_favail == 0)) {
    return findings->Fail(what, "make room");
  }
  left < kLittleSpace ? findings->Warn(what, "make room") : findings->Ok(what);
}

void RunCheck(App& app) {
  Place place;
  ChooseRoot(app.line().Value("root"), kDefaultsFile, &place);
  place.spool = app.ValueOr("spool", cm_get_filspool_dir(place.root.c_str()));
  place.sessions = cm_get_sessions_dir(place.root.c_str());
  Findings findings(app, place);
  CheckTree(&findings);
  CheckSystemUser(&findings);
  CheckSpace(&findings);
  if (app.Has("offline") || access(place.spool.c_str(), F_OK) != 0) return;
  CheckDaemon(&findings);
  CheckScheduler(&findings);
  CheckFifos(&findings);
  CheckSpoolFiles(&findings);
  CheckSlots(&findings);
  CheckBooks(&findings);
}

}  // namespace client
