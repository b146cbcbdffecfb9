// msg list, show, rm
#include "ctl/app/app.h"
#include "ctl/format/format.h"
#include "ctl/verbs/actions.h"
#include "ctl/verbs/lists.h"

namespace client {
namespace {

kx::Object MessageName(App& app, const std::string& name) {
  kx::Object resource = kx::Build("obj-resource");
  return app.Set(name, resource.get(), "rname", name) ? std::move(resource)
                                                      : nullptr;
}

void ShowLines(App& app, const std::string& name, kx_object* message) {
  if (!app.out().human()) return app.out().Result(message, "");
  if (app.args() > 1 && !app.Has("quiet")) {
    app.out().Line("",
                   app.out().Painted("== " + Printable(name), Paint::kBold));
  }
  for (kx_object* line : kx::Elements(kx::Child(message, "lines"))) {
    const std::string text = kx::TextOrEmpty(line, "text");
    // An empty line travels as a blank.
    app.out().Line(text == " " ? "" : text);
  }
}

}  // namespace

void ShowMessageList(App& app, const char* listtype) {
  // The server narrows the list: it looks at the time of each file anyway.
  kx::Object request = kx::Build("obj-reqlst");
  kx::SetText(request.get(), "listtype", listtype);
  if (const char* text = app.line().Value("since"); text != nullptr) {
    time_t t;
    if (Status s = ParseTime(text, time(nullptr), &t); !s.ok()) {
      return app.Fail("--since", s);
    }
    kx::SetTime(request.get(), "listtime", static_cast<int>(t));
  }
  const kx::Object answer = app.Call("", "cmd-msglist", std::move(request));
  app.out().Table(kx::Child(kx::Child(answer.get(), "objptr"), "listptr"));
}

void RunMsgList(App& app) {
  const char* type = app.Has("server")   ? "lst-srvmsgs"
                     : app.Has("events") ? "lst-events"
                     : app.Has("routes") ? "lst-routes"
                                         : "lst-tmsgs";
  ShowMessageList(app, type);
}

void RunMsgShow(App& app) {
  for (const std::string& name : app.line().args) {
    kx::Object resource = MessageName(app, name);
    if (resource == nullptr) continue;
    const kx::Object answer = app.Call(name, "cmd-msgret", std::move(resource));
    if (answer == nullptr) continue;
    ShowLines(app, name, kx::Child(answer.get(), "objptr"));
  }
}

void RunMsgRm(App& app) {
  for (const std::string& name : app.line().args) {
    kx::Object resource = MessageName(app, name);
    if (resource == nullptr) continue;
    app.Perform(name, "cmd-msgdel", std::move(resource), name + " deleted");
  }
}

}  // namespace client
