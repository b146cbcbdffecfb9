// A program that is run for a client, within its budget.
//
// - It has a guard (fsguard.h), a clean environment whatever the daemon's is
//   (PATH: the directory of the fax server's programs, then the daemon's own;
//   HOME, USER, LOGNAME and SHELL of the user database; the daemon's LANG;
//   KFAXDIR), and the user's home as its directory, "/" where the user cannot
//   enter that.
// - It ends, and all that it started with it, when the program itself does;
//   when it has had program-seconds, or has written more than program-bytes or
//   program-error-bytes (cm/cmlimits.h); and when the daemon is told to stop.
// - Not while a FileIdentity other than the process's own is in force: the
//   program would begin with it.
// - Limits: sizes are looked at now and then, so that a program gets somewhat
//   further than its limit before it ends.
#ifndef FAXSERVER_FSPROG_H_
#define FAXSERVER_FSPROG_H_

#include <sys/types.h>

#include <string>

#include "faxserver/fspopen.h"
#include "util/kutio.h"
#include "util/kutproc.h"

// Programs end when this descriptor is readable; -1: none.
void fx_stop_programs_at(int fd);

// A file whose size is watched: of a name in an open directory, or the open
// file `dir` itself when the name is empty. -1: none.
struct fx_watched_file {
  int dir = -1;
  const char* name = "";
};

enum class fx_output { kRead, kDrop };

// One run. Functions may throw std::bad_alloc.
class fx_program {
 public:
  fx_program() = default;
  fx_program(const fx_program&) = delete;
  fx_program& operator=(const fx_program&) = delete;
  // Ends the program if it still runs.
  ~fx_program();

  // Starts it as Kut_spawn does, but for what is said above. `user` is whose
  // environment and home it has; null: the process's own user. With kRead its
  // output comes to Read. `errors`, which is borrowed, is where its error
  // output goes. Once. False with errno.
  bool Start(kut_spawn what, const char* user, fx_output output,
             fx_watched_file errors);
  // Waits for output and reads some of it. 0 when there is no more: it was
  // closed, the program ended (a process that it left may hold it for ever), or
  // it was ended for its budget. -1 with errno.
  ssize_t Read(char* buffer, size_t size);
  // Waits for the end, after which its output is closed. The exit status, 128
  // and above for an end by a signal.
  int Wait();
  // Why it was ended: a sentence for the client. Empty when it ended by itself.
  const std::string& why_ended() const { return why_; }

 private:
  bool AwaitBegin(int report);
  bool HasEnded();
  bool Pause(int fd, int milliseconds);
  bool MayGoOn(bool stopped);
  bool EndIfTooMuch();
  void End(const std::string& why);
  void Kill();

  const fx_child_guard child_guard_;
  UniqueFd output_;  // what it prints
  UniqueFd exit_;    // readable when it has ended, where the system has that
  fx_watched_file errors_;
  pid_t pid_ = -1;
  int status_ = 0;
  bool begun_ = false;
  bool ended_ = false;
  long deadline_ = 0;  // milliseconds of the monotonic clock
  long printed_ = 0;
  std::string why_;
};

#endif  // FAXSERVER_FSPROG_H_
