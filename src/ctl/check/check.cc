#include "ctl/check/check.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "cm/cmpaths.h"

namespace client {

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

std::vector<std::string> NamesIn(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void RunCheck(App& app) {
  // Not by Link, which gives up at the first thing that is missing: that is
  // what is looked for here.
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
  // From the outside in: what follows needs a spool directory to look into.
  if (app.Has("offline") || access(place.spool.c_str(), F_OK) != 0) return;
  CheckDaemon(&findings);
  CheckScheduler(&findings);
  CheckFifos(&findings);
  CheckSpoolFiles(&findings);
  CheckSlots(&findings);
  CheckBooks(&findings);
}

}  // namespace client
