// queue, status, wait, cancel, retry
#include <algorithm>
#include <climits>
#include <cstring>
#include <map>

#include "cm/cmresult.h"
#include "ctl/format/format.h"
#include "ctl/verbs/actions.h"
#include "ctl/verbs/requests.h"
#include "util/kuttime.h"

namespace client {
namespace {

constexpr double kFirstLook = 0.1;
constexpr double kLongestLook = 2.0;
// A request may be known before its status is written.
constexpr long kStatusGraceMs = 3000;

// Upper bounds in minutes; what is older than all has a class of its own.
constexpr int kAges[] = {5, 10, 20, 40, 80, 160, 320, 640, 1280};
constexpr size_t kAgeCount = std::size(kAges) + 1;

size_t AgeClass(long long seconds) {
  size_t i = 0;
  while (i < std::size(kAges) && seconds >= kAges[i] * 60LL) ++i;
  return i;
}

std::vector<std::string> ShapeRow(const std::string& name,
                                  const std::vector<int>& counts) {
  std::vector<std::string> cells = {name};
  int total = 0;
  for (const int count : counts) total += count;
  cells.push_back(std::to_string(total));
  for (const int count : counts) {
    cells.push_back(count == 0 ? "" : std::to_string(count));
  }
  return cells;
}

// How many requests of which age each queue has, ages in minutes.
void ShowShape(App& app, kx_object* list) {
  std::map<std::string, std::vector<int>> queues;
  std::vector<int> all(kAgeCount);
  const time_t now = time(nullptr);
  for (kx_object* request : kx::Elements(list)) {
    const size_t age = AgeClass(now - kx::Time(request, "submittime"));
    auto& counts = queues[kx::TextOrEmpty(request, "queue")];
    counts.resize(kAgeCount);
    ++counts[age];
    ++all[age];
  }
  Cells heading = {"QUEUE", "ALL"};
  for (const int minutes : kAges) {
    heading.push_back("<" + std::to_string(minutes) + "m");
  }
  heading.push_back(std::to_string(kAges[std::size(kAges) - 1]) + "m+");
  std::vector<Cells> rows = {ShapeRow("all", all)};
  for (const auto& [name, counts] : queues) {
    rows.push_back(ShapeRow(name.empty() ? "-" : name, counts));
  }
  app.out().Table(heading, rows);
}

// By "done", or by a result that is an end: all of a request's but the one that
// has it tried again.
bool IsFinal(kx_object* status) {
  const int result = kx::Number(status, "rresult");
  return kx::Bool(status, "done") == 1 || result == kCmRequestNormal ||
         (result >= kCmRequestExpired && result <= kCmRequestFailed);
}

// Reports a request that ended without the fax being sent.
void Judge(App& app, const std::string& seqno, kx_object* status) {
  const int result = kx::Number(status, "rresult");
  if (result == kCmRequestNormal) return;
  app.Fail(krt_refused, seqno, cm_result_to_desc(result));
}

// The "obj-reqid" of a regular request, or null after reporting that the text
// is no request number.
kx::Object RequestId(App& app, const std::string& seqno) {
  long number;
  if (!ParseNumber(seqno, 0, INT_MAX, &number)) {
    app.Fail(krt_usage, "", "\"" + seqno + "\" is not a request number");
    return nullptr;
  }
  kx::Object id = kx::Build("obj-reqid");
  kx::SetNumber(id.get(), "seqno", static_cast<int>(number));
  kx::SetEnum(id.get(), "reqtype", kx_req_regular);
  return id;
}

// Asks for a request's status until it is final.
kx::Object AwaitRequest(App& app, const std::string& seqno, Deadline deadline) {
  const long start = Kut_now_ms();
  for (double pause = kFirstLook;; pause = std::min(pause * 2, kLongestLook)) {
    kx::Object id = RequestId(app, seqno);
    if (id == nullptr) return nullptr;
    kx::Object cmd = app.link().Command("cmd-status", std::move(id));
    kx::Object answer;
    Status s = app.link().Call(cmd.get(), nullptr, &answer);
    if (s.ok()) {
      kx_object* status = kx::Child(answer.get(), "objptr");
      if (IsFinal(status)) return kx::Object(Kfx_Copy_Obj(status));
    } else if (s.code != krt_refused || Kut_now_ms() - start > kStatusGraceMs) {
      app.Fail(seqno, s);
      return nullptr;
    }
    // After the look: the shortest time is enough to ask once.
    if (deadline >= 0 && Kut_now_ms() >= deadline) {
      app.Fail(krt_timed_out, seqno, "not done yet");
      return nullptr;
    }
    if (!app.Sleep(pause)) {
      app.Fail(krt_interrupted, seqno, "interrupted, the request goes on");
      return nullptr;
    }
  }
}

// Sends one command for each request number given.
void ForEachRequest(App& app, const char* cmdtype, const char* done) {
  for (const std::string& seqno : app.line().args) {
    kx::Object id = RequestId(app, seqno);
    if (id == nullptr) continue;
    app.Perform(seqno, cmdtype, std::move(id), "request " + seqno + " " + done);
  }
}

}  // namespace

void AwaitRequests(App& app, const std::vector<std::string>& seqnos) {
  long seconds = 0;
  const char* timeout = app.line().Value("timeout");
  // Without a word on it, a fax may take as long as it takes.
  if (timeout != nullptr) ParseNumber(timeout, 0, INT_MAX, &seconds);
  const Deadline deadline = After(static_cast<int>(seconds));
  kx::ListBuilder done;
  for (const std::string& seqno : seqnos) {
    // One after the other, and no time lost by it: all of them go on meanwhile,
    // and have one deadline.
    kx::Object status = AwaitRequest(app, seqno, deadline);
    if (status == nullptr) continue;
    Judge(app, seqno, status.get());
    done.Append(std::move(status));
  }
  if (!app.Has("quiet") || !app.out().human()) app.out().Table(done.head());
}

void RunQueue(App& app) {
  if (app.dry_run()) {
    app.Call("", "cmd-state", nullptr);
    return;
  }
  // There is no command for a user's requests: they are picked from all.
  const kx::Object answer = app.Query("", "cmd-state", nullptr);
  if (answer == nullptr) return;
  kx::ListBuilder mine;
  kx_object* state = kx::Child(answer.get(), "objptr");
  for (kx_object* request : kx::Elements(kx::Child(state, "freqlist"))) {
    if (!app.Has("all") &&
        app.identity().user != kx::TextOrEmpty(request, "clientid")) {
      continue;
    }
    mine.Append(kx::Object(Kfx_Copy_Obj(request)));
  }
  if (app.Has("shape") && app.out().human()) return ShowShape(app, mine.head());
  app.out().Table(mine.head());
  if (mine.count() == 0) app.Note("no requests are waiting");
}

void RunStatus(App& app) {
  const bool attempts = app.Has("attempts");
  kx::ListBuilder found;
  for (const std::string& seqno : app.line().args) {
    kx::Object id = RequestId(app, seqno);
    if (id == nullptr) continue;
    const kx::Object answer =
        app.Call(seqno, attempts ? "cmd-statatt" : "cmd-status", std::move(id));
    kx_object* result = kx::Child(answer.get(), "objptr");
    if (result == nullptr) continue;
    if (!attempts) {
      found.Append(kx::Object(Kfx_Copy_Obj(result)));
      continue;
    }
    for (kx_object* status : kx::Elements(result)) {
      found.Append(kx::Object(Kfx_Copy_Obj(status)));
    }
  }
  if (found.count() == 1 && app.out().human()) {
    app.out().Details(static_cast<kx_object*>(Kfx_Bdata(found.head())));
  } else {
    app.out().Table(found.head());
  }
}

void RunWait(App& app) {
  if (!app.Connect()) return;
  if (app.dry_run()) return RunStatus(app);
  AwaitRequests(app, app.line().args);
}

void RunCancel(App& app) { ForEachRequest(app, "cmd-cancel", "cancelled"); }

void RunRetry(App& app) {
  ForEachRequest(app, "cmd-try", "is tried again now");
}

}  // namespace client
