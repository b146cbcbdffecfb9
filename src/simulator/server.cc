#include "simulator/server.h"

#include <poll.h>
#include <signal.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>

#include "cm/cmdaemon.h"
#include "cm/cmpaths.h"
#include "daemon/spool/logfile.h"
#include "daemon/spool/rsp.h"
#include "simulator/fifo.h"
#include "simulator/intake.h"
#include "simulator/output.h"
#include "simulator/presence.h"
#include "simulator/scheduler.h"
#include "simulator/segment.h"
#include "simulator/words.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kuttime.h"

namespace sim {
namespace {

constexpr long kTickMs = 5000;   // between two looks for what was lost
constexpr int kAnswerTrys = 20;  // ticks that an answer is tried again

volatile sig_atomic_t g_stop = 0;

void Stop(int) { g_stop = 1; }

// The ending signals are blocked but where the loop waits: none is lost between
// a look at the flag and the wait.
class Signals {
 public:
  Signals() {
    sigset_t ending;
    sigemptyset(&ending);
    struct sigaction action = {};
    action.sa_handler = Stop;
    for (const int sig : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
      sigaddset(&ending, sig);
      sigaction(sig, &action, nullptr);
    }
    // A reader of our output that went away shows in the output.
    signal(SIGPIPE, SIG_IGN);
    sigprocmask(SIG_BLOCK, &ending, &waiting_);
    for (const int sig : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
      sigdelset(&waiting_, sig);
    }
  }
  const sigset_t* waiting() const { return &waiting_; }

 private:
  sigset_t waiting_;
};

std::string InDirectory(const std::string& dir, const char* name) {
  return dir + "/" + name;
}

class Server {
 public:
  explicit Server(const Options& options)
      : options_(options),
        scheduler_(options.root, options.course),
        intake_(options.root, Spool(), options.pages, &scheduler_) {}

  // Takes its place in the fax server. EX_OK, or another status, the reason
  // having been told.
  int Begin();
  int Serve();

 private:
  enum SourceId : size_t {
    kScheduler,
    kSpool,
    kFileEvents,
    kNetEvents,
    kSources
  };
  struct Source {
    RecordFifo fifo;
    void (Server::*take)(Source& source);
    const char* name = "";
  };

  std::string Spool() const {
    return options_.spool.empty()
               ? std::string(cm_get_filspool_dir(options_.root.c_str()))
               : options_.spool;
  }
  int OpenFifos();
  bool OpenFifo(Source& source, const std::string& path,
                bool (*make)(const std::string& path));
  template <typename Record>
  bool Next(Source& source, Record* record);
  void TakeScheduler(Source& source);
  void TakeSpool(Source& source);
  void TakeEvent(Source& source);
  void Wait();
  bool IsFinished() const;

  const Options& options_;
  Signals signals_;
  RootLock lock_;
  Source sources_[kSources];
  Registration registration_;
  StatusSegment segment_;
  Scheduler scheduler_;
  Intake intake_;
  long tick_ = 0;  // when to look for what was lost
  bool had_work_ = false;
  bool quiet_fifos_ = false;  // the last pass found no record
};

int Server::Begin() {
  const std::string spool = Spool();
  for (const std::string& dir :
       {spool, std::string(cm_get_netspool_dir(options_.root.c_str()))}) {
    if (Kut_is_directory(dir.c_str()) != 0) continue;
    Complain("%s is no directory; krtsim init makes a root", dir.c_str());
    return EX_CONFIG;
  }
  // Before anything is read or made: two would take each other's records.
  if (!lock_.Take(options_.root)) {
    if (errno != EWOULDBLOCK) {
      Complain("cannot open %s: %s", options_.root.c_str(), Kut_sys_errstr());
      return EX_CONFIG;
    }
    Complain("another krtsim serves %s", options_.root.c_str());
    return EX_UNAVAILABLE;
  }
  if (const int status = OpenFifos(); status != EX_OK) return status;
  std::string reason;
  // The segment comes last: with it the daemon takes the scheduler for running,
  // and writes to its fifo.
  if (!registration_.Enter(options_.root, &reason) ||
      !segment_.Make(scheduler_.devices().count(), &reason)) {
    Complain("%s", reason.c_str());
    return EX_UNAVAILABLE;
  }
  // What an earlier run left goes on; commands that were saved while nobody
  // read the fifo are found by a tick.
  scheduler_.devices().Announce();
  scheduler_.TakeUp();
  had_work_ = scheduler_.jobs() > 0;
  Say("ready: %d devices, process %d", scheduler_.devices().count(),
      static_cast<int>(getpid()));
  return EX_OK;
}

int Server::OpenFifos() {
  const char* root = options_.root.c_str();
  const std::string spool = Spool();
  const std::string fil = cm_get_filspool_dir(root);
  const std::string net = cm_get_netspool_dir(root);
  sources_[kScheduler].take = &Server::TakeScheduler;
  sources_[kSpool].take = &Server::TakeSpool;
  sources_[kFileEvents].take = &Server::TakeEvent;
  sources_[kFileEvents].name = kCmFileDaemon;
  sources_[kNetEvents].take = &Server::TakeEvent;
  sources_[kNetEvents].name = kCmNetDaemon;
  const bool open =
      OpenFifo(sources_[kScheduler], cm_get_fifo_file(root),
               MakeSchedulerFifo) &&
      OpenFifo(sources_[kSpool], InDirectory(spool, "kfifo"), MakeSpoolFifo) &&
      OpenFifo(sources_[kFileEvents], InDirectory(fil, "efifo"),
               MakeEventFifo) &&
      OpenFifo(sources_[kNetEvents], InDirectory(net, "efifo"), MakeEventFifo);
  return open ? EX_OK : EX_CANTCREAT;
}

bool Server::OpenFifo(Source& source, const std::string& path,
                      bool (*make)(const std::string& path)) {
  if (source.fifo.Open(path, make)) return true;
  Complain("cannot open fifo %s: %s", path.c_str(), Kut_sys_errstr());
  return false;
}

template <typename Record>
bool Server::Next(Source& source, Record* record) {
  switch (source.fifo.Next(*record)) {
    case RecordFifo::Got::kRecord:
      quiet_fifos_ = false;
      return true;
    case RecordFifo::Got::kOutOfStep:
      Say("fifo: half a record, thrown away");
      return false;
    case RecordFifo::Got::kNothing:
      break;
  }
  return false;
}

void Server::TakeScheduler(Source& source) {
  fx_sched_record record;
  while (Next(source, &record)) {
    Say("%s", InWords(record).c_str());
    const int32_t seqno = fx_sched_record_seqno(record);
    const uint16_t code = fx_sched_record_code(record);
    if (code == kFxSchedCancel) scheduler_.Cancel(seqno);
    if (code == kFxSchedTry) scheduler_.TryNow(seqno);
  }
}

void Server::TakeSpool(Source& source) {
  SpoolRecord record;
  while (Next(source, &record)) {
    Say("%s", InWords(record).c_str());
    intake_.Take(SpoolRecordName(record));
    had_work_ = true;
  }
}

void Server::TakeEvent(Source& source) {
  fx_event_record record;
  while (Next(source, &record)) {
    Say("%s", InWords(source.name, record).c_str());
  }
}

int Server::Serve() {
  for (;;) {
    quiet_fifos_ = true;
    // New requests first: a cancel may be for one of them.
    for (const SourceId id : {kSpool, kScheduler, kFileEvents, kNetEvents}) {
      (this->*sources_[id].take)(sources_[id]);
    }
    if (Kut_now_ms() >= tick_) {
      intake_.TakeForgotten();
      rsp_check(kAnswerTrys);
      tick_ = Kut_now_ms() + kTickMs;
    }
    scheduler_.Advance();
    // Who waits for our lines has gone, a script that was interrupted perhaps.
    if (OutputLost()) return EX_IOERR;
    if (g_stop != 0 || IsFinished()) break;
    Wait();
  }
  Say("stopped: %zu jobs left", scheduler_.jobs());
  return EX_OK;
}

bool Server::IsFinished() const {
  // A record may have come with the last answer, so a pass without any is
  // waited for.
  return options_.exit_when_idle && had_work_ && quiet_fifos_ &&
         scheduler_.jobs() == 0;
}

void Server::Wait() {
  const long until = std::min(tick_, scheduler_.NextTime());
  // What was read may have caused further records: look again first.
  const long left = quiet_fifos_ ? std::max(until - Kut_now_ms(), 0L) : 0;
  const timespec timeout = {left / 1000, left % 1000 * 1'000'000};
  pollfd fds[kSources];
  for (size_t i = 0; i < kSources; ++i) {
    fds[i] = {sources_[i].fifo.fd(), POLLIN, 0};
  }
  // Whatever ended it, the loop looks at everything: readiness, time or signal
  // only say that it is worth it.
  ppoll(fds, kSources, &timeout, signals_.waiting());
}

}  // namespace

int RunServer(const Options& options) {
  if (options.quiet) BeQuiet();
  dmn_log_reopen(-1, 0);  // what the daemon's services have to tell
  Server server(options);
  const int status = server.Begin();
  return status == EX_OK ? server.Serve() : status;
}

}  // namespace sim
