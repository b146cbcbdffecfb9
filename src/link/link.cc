#include "link/link.h"

#include <algorithm>
#include <cstdlib>

#include "link/daemons.h"
#include "link/diagnosis.h"
#include "util/kuttime.h"

namespace client {
namespace {

// A daemon of another host may serve the same spool, unseen by this host's
// process table. It gets this long to take a command.
constexpr int kOtherHostGrace = 7;

constexpr char kStartDaemon[] =
    "the daemon is not running; start it (systemctl start krtcmd), then: "
    "krtctl ping";

int TimeoutOf(int given) {
  if (given >= 0) return given;
  const char* variable = getenv("KRTCTL_TIMEOUT");
  if (variable == nullptr || *variable == '\0') return kDefaultTimeout;
  char* end;
  const long seconds = strtol(variable, &end, 10);
  const bool good = *end == '\0' && seconds >= 0 && seconds <= 1'000'000'000;
  return good ? static_cast<int>(seconds) : -1;
}

}  // namespace

Status Link::Open(const krt_options& options, const char* defaults_file) {
  timeout_ = TimeoutOf(options.timeout);
  if (timeout_ < 0) {
    return {krt_usage, "KRTCTL_TIMEOUT: not a number of seconds"};
  }
  cancel_fd_ = options.cancel_fd > 0 ? options.cancel_fd : -1;
  if (Status s = FindPlace(options.root, options.spool, defaults_file, &place_);
      !s.ok()) {
    return s;
  }
  // The number is reserved with the first command: who only collects takes none
  // from the others.
  exchange_.Attach(place_);
  return FindIdentity(options.user, &identity_);
}

Status Link::EnsureOpen() {
  if (open_) return {};
  Status s = exchange_.Open(place_);
  open_ = s.ok();
  return s;
}

void Link::Identify(kx_object* cmd) {
  if (kx::Text(cmd, "clientid") == nullptr) {
    kx::SetText(cmd, "clientid", identity_.user.c_str());
  }
  if (kx::Text(cmd, "hostname") == nullptr) {
    kx::SetText(cmd, "hostname", identity_.host.c_str());
  }
  if (kx::Bool(cmd, "iscmd") == -1) kx::SetBool(cmd, "iscmd", true);
  if (kx::Bool(cmd, "respond") == -1) kx::SetBool(cmd, "respond", true);
}

kx::Object Link::Command(const char* cmdtype, kx::Object argument) {
  kx::Object cmd(krt_command(cmdtype, argument.release()));
  if (cmd != nullptr) Identify(cmd.get());
  return cmd;
}

Status Link::Name(kx_object* cmd, std::string* name) {
  if (Status s = EnsureOpen(); !s.ok()) return s;
  return exchange_.Name(cmd, name);
}

Status Link::Send(kx_object* cmd, const std::string& name) {
  // A register without a daemon is certain: nobody would ever look. One whose
  // daemons are dead is not, since it may name another host's; WaitAny decides.
  if (FindDaemon(place_.root) == DaemonState::kNone) {
    return {krt_unavailable, kStartDaemon};
  }
  return exchange_.Send(cmd, name);
}

Status Link::WaitAny(const std::vector<std::string>& names,
                     const char* unpack_dir, size_t* which, kx::Object* answer,
                     std::vector<std::string>* left) {
  WaitFor wait{After(timeout_), cancel_fd_, unpack_dir};
  Status s;
  if (FindDaemon(place_.root) == DaemonState::kDead) {
    WaitFor grace = wait;
    const Deadline end = After(kOtherHostGrace);
    if (wait.deadline < 0 || end < wait.deadline) grace.deadline = end;
    s = exchange_.WaitAny(names, grace, which, answer);
    // Taken by somebody: there is a daemon, and it has all the time.
    if (s.code == krt_timed_out && grace.deadline != wait.deadline &&
        NoneWaits(names)) {
      s = exchange_.WaitAny(names, wait, which, answer);
    }
  } else {
    s = exchange_.WaitAny(names, wait, which, answer);
  }
  if (s.code != krt_timed_out && s.code != krt_interrupted) return s;
  // Time is over or the user interrupts. Nothing may be carried out later that
  // is reported as failed, so each command is taken back before a word is said.
  Status gave_up = GiveUp(names, s, left);
  // Of several, others have been withdrawn: the wait is over.
  if (gave_up.code != krt_unknown || names.size() > 1) return gave_up;
  // The answer may have come between the last look and the withdrawal.
  s = exchange_.WaitAny(names, {Kut_now_ms(), -1, unpack_dir}, which, answer);
  return s.code == krt_timed_out ? gave_up : s;
}

bool Link::NoneWaits(const std::vector<std::string>& names) const {
  return std::none_of(names.begin(), names.end(), [&](const std::string& name) {
    return exchange_.Waiting(name);
  });
}

std::string Link::Ignored() const {
  return exchange_.ignored().empty() ? "" : "; " + exchange_.ignored();
}

Status Link::GiveUp(const std::vector<std::string>& names, const Status& why,
                    std::vector<std::string>* left) {
  std::string taken;
  // All of them, also after the first that the daemon has: the others are still
  // to be had back.
  for (const std::string& name : names) {
    if (exchange_.Withdraw(name).ok()) continue;
    if (left != nullptr) left->push_back(name);
    taken += (taken.empty() ? "" : ", ") + name;
  }
  if (!taken.empty()) {
    return {krt_unknown,
            "outcome unknown, later: krtctl collect " + taken + Ignored()};
  }
  if (why.code == krt_interrupted) {
    return {krt_interrupted, "interrupted, not executed" + Ignored()};
  }
  if (FindDaemon(place_.root) != DaemonState::kAlive) {
    return {krt_unavailable, kStartDaemon};
  }
  return {krt_timed_out, "no answer in " + std::to_string(timeout_) +
                             " s, not executed" + Ignored()};
}

Status Link::Collect(const std::string& name, const char* unpack_dir,
                     kx::Object* answer) {
  size_t which;
  const WaitFor wait{After(timeout_), cancel_fd_, unpack_dir};
  Status s = exchange_.WaitAny({name}, wait, &which, answer);
  // The client that gave up left its number's file, which counts references,
  // for as long as this answer was to come.
  if (s.ok()) RetireSlots(place_, SlotOfName(name, '-'));
  if (s.code != krt_timed_out) return s;
  if (exchange_.Waiting(name)) s.text = "the daemon has not taken it yet";
  s.text += Ignored();
  return s;
}

Status Link::Call(kx_object* cmd, const char* unpack_dir, kx::Object* answer) {
  std::string name;
  if (Status s = Name(cmd, &name); !s.ok()) return s;
  if (Status s = Send(cmd, name); !s.ok()) return s;
  size_t which;
  if (Status s = WaitAny({name}, unpack_dir, &which, answer, nullptr);
      !s.ok()) {
    return s;
  }
  return Refusal(answer->get());
}

}  // namespace client
