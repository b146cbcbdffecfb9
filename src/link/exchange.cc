#include "link/exchange.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "cm/cmkrt.h"
#include "kx/kxtext.h"
#include "link/daemons.h"
#include "util/kutdir.h"
#include "util/kutfile.h"
#include "util/kuttime.h"

namespace client {
namespace {

// The daemon goes by the owner, so nobody else may write.
constexpr mode_t kCommandMode = 0640;
// How often to look without being told: where notifications work, only for
// what another host did.
constexpr long kSlowLook = 1000;
constexpr long kFirstLook = 10;
constexpr long kLongestLook = 250;

int AppendPair(void* context, const char* name, const char* value, int code) {
  if (code == kx_write_start || code == kx_write_stop) return 0;
  auto* text = static_cast<std::string*>(context);
  *text += name;
  *text += '=';
  *text += value;
  *text += '\n';
  return 0;
}

Status WriteNew(const std::string& path, const std::string& text) {
  UniqueFd fd(Kut_open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW,
                       kCommandMode));
  if (!fd.valid()) return SystemFailure(krt_cannot_create, path);
  // Past the umask: the daemon reads it as the fax system's user.
  if (fchmod(fd.get(), kCommandMode) == 0 &&
      Kut_write_full(fd.get(), text.data(), text.size()) == 0) {
    return {};
  }
  Status failed = SystemFailure(krt_io, path);
  unlink(path.c_str());
  return failed;
}

}  // namespace

Deadline After(int seconds) {
  return seconds == 0 ? -1 : Kut_now_ms() + seconds * 1000L;
}

std::string TextForm(kx_object* obj) {
  std::string text;
  if (Kfx_Decomp_Obj(obj, AppendPair, &text, 0) != 0) text.clear();
  return text;
}

bool IsExchangeName(const std::string& name) {
  constexpr char kPattern[] = "dddd-ddd";
  if (name.size() != sizeof kPattern - 1) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    const bool digit = isdigit(static_cast<unsigned char>(name[i])) != 0;
    if (kPattern[i] == 'd' ? !digit : name[i] != kPattern[i]) return false;
  }
  return true;
}

Status Exchange::Open(const Place& place) {
  Attach(place);
  return slot_.Reserve(place);
}

void Exchange::Close() { slot_.Release(open_ <= 0); }

Status Exchange::Name(kx_object* cmd, std::string* name) {
  int reference;
  for (int tries = 0; tries < kMaxReference; ++tries) {
    if (Status s = slot_.NextReference(&reference); !s.ok()) return s;
    kx::SetNumber(cmd, "sessionid", slot_.session());
    kx::SetNumber(cmd, "reference", reference);
    *name = kx_tmp_name(cmd);
    // A response to a command that was given up may still lie there, or come:
    // its reference is not used again.
    if (!Taken(*name) && !Waiting(*name)) return {};
  }
  return {krt_system, place_.spool + ": all references are in use"};
}

Status Exchange::Send(kx_object* cmd, const std::string& name) {
  const std::string text = TextForm(cmd);
  if (text.empty()) {
    return {krt_internal, std::string("command: ") + Kfx_Errmsg(Kfx_Errno())};
  }
  // Before the command is there: its answer may come at once.
  Watch();
  const std::string base = place_.spool + "/" + name;
  const std::string temporary = base + ".new";
  if (Status s = WriteNew(temporary, text); !s.ok()) return s;
  // Not over a command that nobody has taken yet.
  if (Kut_rename_fresh(AT_FDCWD, temporary.c_str(), (base + ".cmd").c_str()) !=
      0) {
    Status failed = SystemFailure(krt_io, base + ".cmd");
    unlink(temporary.c_str());
    return failed;
  }
  ++open_;
  return {};
}

void Exchange::Watch() {
  if (inotify_.valid()) return;
  inotify_.reset(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (inotify_.valid() &&
      inotify_add_watch(inotify_.get(), place_.spool.c_str(), IN_MOVED_TO) <
          0) {
    inotify_.reset();
  }
}

// Waits until something may have changed; false when the caller gives up.
bool Exchange::Sleep(const WaitFor& wait, long longest) {
  // Told of changes, there is no need to look often.
  if (inotify_.valid()) longest = kSlowLook;
  if (wait.deadline >= 0) {
    longest = std::min(longest, std::max(0L, wait.deadline - Kut_now_ms()));
  }
  pollfd fds[2] = {{wait.cancel_fd, POLLIN, 0}, {inotify_.get(), POLLIN, 0}};
  const int ready = poll(fds, 2, static_cast<int>(longest));
  if (ready > 0 && fds[0].revents != 0) return false;
  if (ready > 0 && fds[1].revents != 0) {
    // What happened does not matter, as all names are looked at again. Left
    // unread, it would end every further wait at once.
    alignas(inotify_event) char events[4096];
    while (read(inotify_.get(), events, sizeof events) > 0) {
    }
  }
  return true;
}

Status Exchange::WaitAny(const std::vector<std::string>& names,
                         const WaitFor& wait, size_t* which,
                         kx::Object* answer) {
  Watch();
  long look = kFirstLook;
  for (;;) {
    // Asked before the look: what comes until then is still in time, and after
    // the deadline there is one last look.
    const bool late = wait.deadline >= 0 && Kut_now_ms() >= wait.deadline;
    ignored_.clear();
    for (size_t i = 0; i < names.size(); ++i) {
      Status s = Take(names[i], wait.unpack_dir, answer);
      if (s.code == krt_timed_out) continue;
      if (s.ok() && !IsOurs(names[i], answer->get())) {
        // Whoever gives up the wait must not find it in the answer's place.
        answer->reset();
        continue;
      }
      if (SlotOfName(names[i], '-') == slot_.number()) --open_;
      *which = i;
      return s;
    }
    if (late) return {krt_timed_out, "no answer"};
    if (!Sleep(wait, look)) return {krt_interrupted, "interrupted"};
    look = std::min(look * 2, kLongestLook);
  }
}

bool Exchange::Believes(uid_t owner) const {
  if (owner == geteuid() || cm_is_krt_admin(static_cast<int>(owner))) {
    return true;
  }
  struct stat spool;
  return (stat(place_.spool.c_str(), &spool) == 0 && spool.st_uid == owner) ||
         IsDaemonsUser(place_.root, owner);
}

Status Exchange::OpenResponse(const std::string& path, UniqueFd* fd) {
  Status none = {krt_timed_out, path + ": no answer yet"};
  struct stat st;
  fd->reset(Kut_open_regular(AT_FDCWD, path.c_str(), O_NOFOLLOW, &st));
  const int error = errno;
  // What is no regular file, or may not be opened, is looked at by its name:
  // whose it is says whether it stands in the answer's place by right.
  if (!fd->valid() && (error == ENOENT || lstat(path.c_str(), &st) != 0)) {
    return none;
  }
  // Anybody may have given a file of somebody else's a second name.
  const bool linked = S_ISREG(st.st_mode) && st.st_nlink != 1;
  if (linked || !Believes(st.st_uid)) {
    ignored_ = path + " of " + UserName(st.st_uid) + " is not taken" +
               (linked ? ": it has other names" : "");
    return none;
  }
  if (fd->valid()) return {};
  errno = error;
  return SystemFailure(krt_io, path);
}

Status Exchange::Take(const std::string& name, const char* unpack_dir,
                      kx::Object* answer) {
  const std::string path = place_.spool + "/" + name + ".rsp";
  UniqueFd fd;
  if (Status s = OpenResponse(path, &fd); !s.ok()) return s;
  // Read by the descriptor that was looked at, so that nothing else can be in
  // its place by now.
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fdopen(fd.get(), "r"),
                                                   fclose);
  if (file == nullptr) return SystemFailure(krt_system, path);
  static_cast<void>(fd.release());
  kx_source source = {file.get()};
  answer->reset(
      Kfx_Comp_Obj("obj-cmdrsp", kx_read_source, &source, unpack_dir));
  if (*answer == nullptr) {
    // Kept: it is all that tells what became of the command.
    return {krt_internal,
            path + ": not a response: " + Kfx_Errmsg(Kfx_Errno())};
  }
  unlink(path.c_str());
  return {};
}

// A response to an earlier client of this number has another session number in
// it; there is nobody left who waits for it under this name.
bool Exchange::IsOurs(const std::string& name, kx_object* answer) const {
  if (kx::Number(answer, "sessionid") == slot_.session()) return true;
  return SlotOfName(name, '-') != slot_.number();
}

bool Exchange::Waiting(const std::string& name) const {
  return access((place_.spool + "/" + name + ".cmd").c_str(), F_OK) == 0;
}

bool Exchange::Taken(const std::string& name) const {
  DirReader dir;
  if (dir.Open(place_.spool.c_str()) != 0) return false;
  while (const char* entry = dir.Next()) {
    const std::string file = entry;
    if (file.starts_with(name + ".") && file != name + ".cmd") {
      return true;
    }
  }
  return false;
}

Status Exchange::Withdraw(const std::string& name) {
  const std::string base = place_.spool + "/" + name;
  if (rename((base + ".cmd").c_str(), (base + ".new").c_str()) != 0) {
    if (errno == ENOENT) return {krt_unknown, "the daemon has it"};
    return SystemFailure(krt_unknown, base + ".cmd");
  }
  // The daemon may have been faster all the same, and somebody have put a
  // command of his own in the place of this one.
  struct stat st;
  if (lstat((base + ".new").c_str(), &st) == 0 && st.st_uid != geteuid()) {
    rename((base + ".new").c_str(), (base + ".cmd").c_str());
    return {krt_unknown, "the daemon has it"};
  }
  unlink((base + ".new").c_str());
  --open_;
  return {};
}

}  // namespace client
