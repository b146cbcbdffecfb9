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

// What the daemon needs to start: its directories, and nobody in them who
// should not be; the fax system's user and group; room on the disk.
void CheckTree(Findings* findings);
// Whose word commands in the spool directory have, by who can write there; and
// the system's protections against what users can do in such a directory.
void CheckTrust(Findings* findings);
void CheckProtections(Findings* findings);
void CheckSystemUser(Findings* findings);
void CheckSpace(Findings* findings);
// Who runs, and listens.
void CheckDaemon(Findings* findings);
void CheckScheduler(Findings* findings);
void CheckFifos(Findings* findings);
// The names in a directory, sorted; none when it cannot be read.
std::vector<std::string> NamesIn(const std::string& dir);

// What lies about.

// Whether a command that process `pid` claimed `since` seconds ago was left
// behind: its process is gone, or it has had its time (a daemon that could not
// fork lives on, and a process id comes again).
bool IsAbandonedClaim(long pid, time_t since);
void CheckSpoolFiles(Findings* findings);
void CheckSlots(Findings* findings);
void CheckBooks(Findings* findings);

}  // namespace client

#endif  // CTL_CHECK_CHECK_H_
