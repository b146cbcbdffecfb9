// Command files out, response files in.
//
// - A command appears as <spool>/NNNN-RRR.cmd by a rename, whole. Its response
//   is taken from NNNN-RRR.rsp and removed.
// - The daemon takes a command by renaming it. Taking it back is a rename too,
//   so exactly one of the two gets it: a command is either not executed, or its
//   outcome is the response's to tell.
// - A response is believed when it is a regular file with one name, and belongs
//   to this process's user, root, the fax system's user, the owner of the spool
//   directory (who can take and answer everything there), or the user of a
//   registered daemon. Anything else in its place was left by a stranger: it
//   stays where it is, and the answer is waited for.
// - Notifications only say when to look; a timed look finds everything, also on
//   a file system that does not notify.
#ifndef LINK_EXCHANGE_H_
#define LINK_EXCHANGE_H_

#include <string>
#include <vector>

#include "kx/object.h"
#include "link/slot.h"

namespace client {

// A point in time by Kut_now_ms; negative: never.
using Deadline = long;
// `seconds` from now; 0 is never.
Deadline After(int seconds);

struct WaitFor {
  Deadline deadline = -1;
  int cancel_fd = -1;                // -1: none
  const char* unpack_dir = nullptr;  // null: embedded files are skipped
};

class Exchange {
 public:
  // Says where; enough for callers that only take responses.
  void Attach(const Place& place) { place_ = place; }
  // The same, and reserves the session number.
  Status Open(const Place& place);
  // Gives the number back; what is still unanswered keeps its files.
  void Close();

  // Fills in session and reference of the next command, and says its name, of
  // which nothing is in the spool. krt_system when there is no such name.
  Status Name(kx_object* cmd, std::string* name);
  // Sends a command that has its name.
  Status Send(kx_object* cmd, const std::string& name);

  // Waits until one of the commands is answered: its index in `names` goes to
  // `which`. krt_timed_out and krt_interrupted leave them all as they are.
  Status WaitAny(const std::vector<std::string>& names, const WaitFor& wait,
                 size_t* which, kx::Object* answer);
  // Takes back a command that the daemon has not taken. krt_ok: it is not
  // executed; krt_unknown: the daemon was faster.
  Status Withdraw(const std::string& name);

  // Takes the response of that name, whoever sent the command, if it is there:
  // krt_timed_out if not, or if what is there is not to be believed.
  Status Take(const std::string& name, const char* unpack_dir,
              kx::Object* answer);
  // What lay in a response's place at the last look and was not believed, for
  // people; "" when nothing did.
  const std::string& ignored() const { return ignored_; }
  // Whether the command lies in the spool untaken, or taken and unread.
  bool Waiting(const std::string& name) const;
  bool Taken(const std::string& name) const;

 private:
  bool Believes(uid_t owner) const;
  Status OpenResponse(const std::string& path, UniqueFd* fd);
  bool IsOurs(const std::string& name, kx_object* answer) const;
  void Watch();
  bool Sleep(const WaitFor& wait, long longest);

  Place place_;
  Slot slot_;
  UniqueFd inotify_;
  int open_ = 0;  // sent, neither answered nor withdrawn
  std::string ignored_;
};

// Whether a text is the name of an exchange, "NNNN-RRR".
bool IsExchangeName(const std::string& name);
// The object in text form, as a command file holds it; "" on failure
// (kx_errno).
std::string TextForm(kx_object* obj);

}  // namespace client

#endif  // LINK_EXCHANGE_H_
