// The checks of `krtctl check`, in groups that each look at one thing.
#ifndef CTL_CHECK_CHECK_H_
#define CTL_CHECK_CHECK_H_

#include <ctime>
#include <string>
#include <vector>

#include "ctl/app/app.h"

namespace client {

// Where a finding goes: a line with its state and, unless it is fine, the fix.
class Findings {
 public:
  Findings(App& app, const Place& place) : app_(app), place_(place) {}

  void Ok(const std::string& what);
  void Warn(const std::string& what, const std::string& fix);
  void Fail(const std::string& what, const std::string& fix);
  // Whether to repair; `question` is asked first unless it is empty.
  bool Repairs(const std::string& question = "");

  App& app() { return app_; }
  const Place& place() const { return place_; }
  const char* root() const { return place_.root.c_str(); }

 private:
  void Show(const char* state, Paint paint, const std::string& what,
            const std::string& fix);

  App& app_;
  const Place& place_;
};

// What `check` does.
void RunCheck(App& app);

// The names in a directory, sorted; none when it cannot be read.
std::vector<std::string> NamesIn(const std::string& dir);

// tree.cc: the directories that the daemon needs to start, and nobody in them
// who should not be.
void CheckTree(Findings* findings);
// trust.cc: whose word commands in the spool directory have, by who can write
// there.
void CheckTrust(Findings* findings);
// machine.cc: the system's protections against what users can do in such a
// directory, the fax system's user and group, room on the disk.
void CheckProtections(Findings* findings);
void CheckSystemUser(Findings* findings);
void CheckSpace(Findings* findings);
// running.cc: who runs, and listens.
void CheckDaemon(Findings* findings);
void CheckScheduler(Findings* findings);
void CheckFifos(Findings* findings);
// leftovers.cc: what lies about.
void CheckSpoolFiles(Findings* findings);
void CheckSlots(Findings* findings);
// Whether a command that process `pid` claimed `since` seconds ago was left
// behind: its process is gone, or it has had its time (a daemon that could not
// fork lives on, and a process id comes again).
bool IsAbandonedClaim(long pid, time_t since);
// book.cc: whether the phone books' indexes say what their records say.
void CheckBooks(Findings* findings);

}  // namespace client

#endif  // CTL_CHECK_CHECK_H_
