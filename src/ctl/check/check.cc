#include "ctl/check/check.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "ctl/format/format.h"

namespace client {
namespace {

constexpr unsigned long long kLittleSpace = 100'000'000;

}  // namespace

void Findings::Show(const char* state, Paint paint, const std::string& what,
                    const std::string& fix) {
  Output& out = app_.out();
  std::string padded = state;
  padded.resize(4, ' ');
  std::string line = "  " + what;
  if (!fix.empty()) line += "; fix: " + fix;
  const bool silent = app_.Has("quiet") && fix.empty();
  std::vector<JsonMember> members = {{"type", JsonString("check")},
                                     {"state", JsonString(state)},
                                     {"what", JsonString(what)}};
  if (!fix.empty()) members.emplace_back("fix", JsonString(fix));
  out.Result(members, silent ? "" : line, out.Painted(padded, paint));
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
  CheckTrust(&findings);
  CheckProtections(&findings);
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
