// ping, state, list, clean
#include "ctl/app/app.h"
#include "ctl/format/format.h"
#include "ctl/verbs/actions.h"
#include "util/kuttime.h"

namespace client {
namespace {

constexpr const char* kListKinds[] = {"covers",      "allcovers",  "filetypes",
                                      "pglengths",   "priorities", "queues",
                                      "resolutions", "results",    "groups",
                                      "prtdests",    "retrys",     "tnps"};

void ShowState(App& app, kx_object* state) {
  Output& out = app.out();
  if (!out.human()) return out.Result(state, "");
  const bool up = kx::Bool(state, "schedup") == 1;
  out.Line("",
           "scheduler      " + (up ? out.Painted("running", Paint::kGood)
                                   : out.Painted("not running", Paint::kBad)));
  const char* queue = kx::Text(state, "defq");
  if (queue != nullptr) out.Line(std::string("default queue  ") + queue);
  for (const char* field : {"devlist", "queuelist", "freqlist"}) {
    kx_object* list = kx::Child(state, field);
    if (list == nullptr) continue;
    out.Line("");
    out.Table(list);
  }
}

bool ShowStateOnce(App& app) {
  const kx::Object answer = app.Call("", "cmd-state", nullptr);
  if (answer == nullptr) return false;
  kx_object* state = kx::Child(answer.get(), "objptr");
  // Cleared when the answer is there, so that the screen is never empty.
  if (app.Has("watch") && app.out().options().terminal) {
    app.out().Raw("\033[H\033[2J");
  }
  ShowState(app, state);
  // Nobody watches any more when it cannot be written.
  return app.out().Flush() == 0;
}

}  // namespace

std::span<const char* const> ListKinds() { return kListKinds; }

void RunPing(App& app) {
  const long start = Kut_now_ms();
  const kx::Object answer = app.Call("", "cmd-noop", nullptr);
  if (answer == nullptr) return;
  const std::string ms = std::to_string(Kut_now_ms() - start);
  app.out().Done(answer.get(), "the daemon answers (" + ms + " ms)",
                 {{"ms", ms}});
}

void RunState(App& app) {
  long seconds = 0;
  if (const char* text = app.line().Value("watch");
      text != nullptr && !ParseNumber(text, 1, 86400, &seconds)) {
    return app.Fail(krt_usage, "", "--watch: not a number of seconds");
  }
  while (ShowStateOnce(app) && seconds > 0) {
    if (!app.Sleep(static_cast<double>(seconds))) return;
  }
}

void RunList(App& app) {
  const std::string kind = app.arg(0);
  std::vector<const char*> kinds;
  for (const char* name : ListKinds()) kinds.push_back(name);
  for (const char* name : kinds) {
    if (kind != name) continue;
    kx::Object request = kx::Build("obj-reqlst");
    kx::SetText(request.get(), "listtype", ("lst-" + kind).c_str());
    const kx::Object answer = app.Call(kind, "cmd-reslist", std::move(request));
    app.out().Table(kx::Child(kx::Child(answer.get(), "objptr"), "listptr"));
    return;
  }
  std::string text = "unknown kind \"" + kind + "\"; one of";
  for (const char* name : kinds) text += std::string(" ") + name;
  app.Fail(krt_usage, "", text + DidYouMean(kind, kinds));
}

void RunClean(App& app) {
  const kx::Object answer = app.Call("", "cmd-faxcln", nullptr);
  if (answer == nullptr) return;
  app.out().Done(answer.get(), "cleaned");
}

}  // namespace client
