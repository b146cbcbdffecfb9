#include "simulator/scheduler.h"

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

#include "cm/cmresult.h"
#include "faxserver/fsolog.h"
#include "faxserver/fsshm.h"
#include "simulator/notify.h"
#include "simulator/output.h"
#include "util/kuttime.h"

namespace sim {
namespace {

constexpr Outcome kCancelledAtWork = {"cancel", kCmAttemptCancelledWork, 0,
                                      false};

int Now() { return static_cast<int>(time(nullptr)); }

int PagesSent(const Request& request, const Outcome& outcome) {
  const int pages = std::max(kx::Number(request.freq.get(), "numpgs"), 1);
  return std::min(pages * outcome.sent_percent / 100, SHRT_MAX);
}

// What the far side calls itself.
std::string CalledStation(const std::string& number, const Outcome& outcome) {
  return outcome.sent_percent > 0 ? "FAX " + number.substr(0, 19) : "";
}

fx_olog_record LogRecord(const Request& request, const Outcome& outcome,
                         int attempt, int result) {
  kx_object* freq = request.freq.get();
  fx_olog_record record;
  record.seqno = static_cast<int32_t>(request.seqno());
  record.attempt = attempt;
  record.stime = static_cast<int32_t>(request.begun);
  record.etime = Now();
  record.npages = static_cast<int16_t>(PagesSent(request, outcome));
  record.naks = outcome.sent_percent > 0 && outcome.sent_percent < 100;
  record.aresult = static_cast<int16_t>(outcome.result);
  record.rresult = static_cast<int16_t>(result);
  record.clientid = request.client();
  record.dialed = kx::TextOrEmpty(freq, "tofnum");
  record.csi = CalledStation(record.dialed, outcome);
  record.tsi = kx::TextOrEmpty(freq, "tsi");
  record.queue = kx::TextOrEmpty(freq, "queue");
  return record;
}

bool IsOver(int result) { return result != kCmRequestRescheduled; }

void Check(bool done, const Request& request, const char* what) {
  if (done) return;
  Complain("request %ld: cannot write its %s: %s", request.seqno(), what,
           Kfx_Errmsg(Kfx_Errno()));
}

}  // namespace

Scheduler::Scheduler(const std::string& root, const Course& course)
    : root_(root), course_(course), devices_(root) {}

void Scheduler::TakeUp() {
  for (Request& request : LoadRequests(root_)) {
    Say("request %ld: taken up for %s", request.seqno(),
        Printable(request.client()).c_str());
    Insert(std::move(request));
  }
  PublishJobs();
}

void Scheduler::Add(Request request) {
  const long seqno = request.seqno();
  const std::string client = Printable(request.client());
  Insert(std::move(request));
  PublishJobs();
  kx_object* freq = requests_.at(seqno).freq.get();
  Say("request %ld: queued for %s to %s on queue %s", seqno, client.c_str(),
      Printable(kx::TextOrEmpty(freq, "tofnum")).c_str(),
      Printable(kx::TextOrEmpty(freq, "queue")).c_str());
}

void Scheduler::Insert(Request request) {
  // From the time of day to the loop's clock, once: a clock that is set later
  // delays nothing.
  const int wait = kx::Time(request.freq.get(), "sendtime") - Now();
  request.due = Kut_now_ms() + std::max(wait, 0) * 1000L;
  requests_.insert_or_assign(request.seqno(), std::move(request));
}

Scheduler::Entry Scheduler::Find(long seqno) {
  const Entry entry = requests_.find(seqno);
  if (entry == requests_.end()) Say("request %ld: not queued here", seqno);
  return entry;
}

void Scheduler::Cancel(long seqno) {
  const Entry entry = Find(seqno);
  if (entry == requests_.end()) return;
  // An attempt under way is ended and logged as every other; one that waits has
  // none to log.
  if (entry->second.is_sending()) {
    EndAttempt(entry, kCancelledAtWork);
  } else {
    kx::SetNumber(entry->second.status.get(), "aresult",
                  kCmAttemptCancelledIdle);
    Finish(entry, kCmRequestCancelled);
  }
}

void Scheduler::TryNow(long seqno) {
  const Entry entry = Find(seqno);
  if (entry == requests_.end() || entry->second.is_sending()) return;
  entry->second.due = Kut_now_ms();
}

void Scheduler::Advance() {
  // Ends before beginnings: they give back the devices that those want.
  const long now = Kut_now_ms();
  for (Entry next = requests_.begin(); next != requests_.end();) {
    const Entry entry = next++;  // it may be over after this
    const Request& request = entry->second;
    if (!request.is_sending() || request.due > now) continue;
    const int attempts = kx::Number(request.freq.get(), "attempt");
    EndAttempt(entry, course_.outcomes.Of(
                          kx::TextOrEmpty(request.freq.get(), "tofnum"),
                          attempts + 1));
  }
  BeginDue();
}

void Scheduler::BeginDue() {
  looked_ = Kut_now_ms();
  std::vector<Entry> due;
  for (Entry entry = requests_.begin(); entry != requests_.end(); ++entry) {
    const Request& request = entry->second;
    if (!request.is_sending() && request.due <= looked_) due.push_back(entry);
  }
  // The urgent first, then the older.
  std::stable_sort(due.begin(), due.end(), [](Entry a, Entry b) {
    return kx::Number(a->second.freq.get(), "prilevel") >
           kx::Number(b->second.freq.get(), "prilevel");
  });
  for (const Entry entry : due) {
    Request& request = entry->second;
    // Looked at when its turn comes: an attempt under way is not broken off.
    const int expiry = kx::Time(request.freq.get(), "exptime");
    if (expiry > 0 && expiry <= Now()) {
      Finish(entry, kCmRequestExpired);
      continue;
    }
    const int device =
        devices_.Take(kx::TextOrEmpty(request.freq.get(), "queue"));
    if (device >= 0) Begin(request, device);
  }
}

void Scheduler::Begin(Request& request, int device) {
  kx_object* status = request.status.get();
  request.device = device;
  request.due = Kut_now_ms() + course_.sending_ms;
  // The log wants the time of day; how long the attempt takes does not depend
  // on whether somebody sets the clock.
  request.begun = time(nullptr);
  const int begun = static_cast<int>(request.begun);
  kx::SetTime(request.freq.get(), "atttime", begun);
  kx::SetTime(status, "stime", begun);
  kx::SetText(status, "etime", nullptr);
  kx::SetText(status, "dialed", kx::Text(request.freq.get(), "tofnum"));
  Check(Save(root_, request), request, "status");
  Say("request %ld: attempt %d on %s", request.seqno(),
      kx::Number(request.freq.get(), "attempt") + 1,
      Printable(devices_.name(device)).c_str());
}

void Scheduler::EndAttempt(Entry entry, const Outcome& outcome) {
  Request& request = entry->second;
  kx_object* freq = request.freq.get();
  const int attempt = kx::Number(freq, "attempt") + 1;
  const int most = course_.most_attempts > 0 ? course_.most_attempts
                                             : kx::Number(freq, "maxtrys");
  const int result = outcome.result == kCmAttemptCancelledWork
                         ? int{kCmRequestCancelled}
                         : ResultAfter(outcome, attempt, most);
  const fx_olog_record record = LogRecord(request, outcome, attempt, result);
  Check(fx_append_olog(root_.c_str(), record) == 0, request, "log record");
  fx_merge_stat_olog(request.status.get(), record);
  kx::SetNumber(freq, "attempt", attempt);
  kx::SetNumber(freq, "rresult", result);
  devices_.Release(request.device);
  request.device = -1;
  if (!IsOver(result)) {
    request.due = Kut_now_ms() + course_.pause_ms;
    Check(SaveStatus(root_, request) && SaveFreq(root_, request), request,
          "status");
  }
  Say("request %ld: attempt %d ended: %s, %d pages sent", request.seqno(),
      attempt, cm_result_to_desc(outcome.result), record.npages);
  if (IsOver(result)) Finish(entry, result);
}

void Scheduler::Finish(Entry entry, int result) {
  const Request& request = entry->second;
  kx::SetNumber(request.status.get(), "rresult", result);
  kx::SetBool(request.status.get(), "done", true);
  kx::SetEnum(request.status.get(), "active", kx_act_done);
  kx::SetNumber(request.freq.get(), "rresult", result);
  kx::SetEnum(request.freq.get(), "active", kx_act_expired);
  Check(SaveStatus(root_, request) && SaveFreq(root_, request) &&
            Retire(root_, request),
        request, "end");
  Notify(root_, request, result);
  const long seqno = request.seqno();
  // Ends the life of `request`.
  requests_.erase(entry);
  PublishJobs();
  Say("request %ld: over: %s", seqno, cm_result_to_desc(result));
}

long Scheduler::NextTime() const {
  long next = LONG_MAX;
  for (const auto& [seqno, request] : requests_) {
    // One that was due at the last look and still waits has no device; the end
    // of another's attempt will give it one.
    if (!request.is_sending() && request.due <= looked_) continue;
    next = std::min(next, request.due);
  }
  return next;
}

void Scheduler::PublishJobs() const {
  fx_set_jobs_in_queue(static_cast<int>(requests_.size()));
}

}  // namespace sim
