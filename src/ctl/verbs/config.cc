// config show, set, edit; monitor show, only, except
#include <cstring>

#include "ctl/app/app.h"
#include "ctl/app/editor.h"
#include "ctl/format/format.h"
#include "ctl/verbs/actions.h"
#include "kx/kxobj.h"

namespace client {
namespace {

// Sets the fields that NAME=VALUE words name, in any case; an empty value
// resets. False after reporting the first that cannot be.
bool SetPairs(App& app, kx_object* obj, const std::vector<std::string>& pairs) {
  for (const std::string& pair : pairs) {
    std::string name;
    std::string value;
    if (!SplitPair(pair, &name, &value)) {
      app.Fail(krt_usage, "", "not NAME=VALUE: " + pair);
      return false;
    }
    name = Lower(name);
    if (Kfx_Field_Type(obj, name.c_str()) == -1) {
      std::vector<const char*> names;
      for (const kx_fielddef* f = kx_obj_info(obj)->fields; f->name; ++f) {
        names.push_back(f->name);
      }
      app.Fail(krt_usage, "",
               "unknown field \"" + name + "\"" + DidYouMean(name, names));
      return false;
    }
    if (!app.Set("", obj, name.c_str(), value)) return false;
  }
  return true;
}

kx::Object FetchConfig(App& app) {
  const kx::Object answer = app.Query("", "cmd-getcfg", nullptr);
  if (answer == nullptr) return nullptr;
  return kx::Object(Kfx_Copy_Obj(kx::Child(answer.get(), "objptr")));
}

void SetMonitor(App& app, int montype) {
  if (!app.Connect()) return;
  kx::Object monitor = kx::Build("obj-monitor");
  kx::SetText(monitor.get(), "clientid", app.identity().user.c_str());
  kx::SetEnum(monitor.get(), "montype", montype);
  kx::ListBuilder names;
  for (const std::string& name : app.line().args) {
    kx::Object resource = kx::Build("obj-resource");
    if (!app.Set(name, resource.get(), "rname", name)) return;
    names.Append(std::move(resource));
  }
  kx::SetChild(monitor.get(), "names", names.Take());
  app.Perform("", "cmd-setmon", std::move(monitor), "stored");
}

}  // namespace

void RunConfigShow(App& app) {
  const kx::Object answer = app.Call("", "cmd-getcfg", nullptr);
  if (answer == nullptr) return;
  app.out().Details(kx::Child(answer.get(), "objptr"));
}

void RunConfigSet(App& app) {
  kx::Object checked = kx::Build("obj-config");
  // Before anything is asked: a wrong name needs no daemon.
  if (!SetPairs(app, checked.get(), app.line().args)) return;
  kx::Object config = FetchConfig(app);
  if (config == nullptr || !SetPairs(app, config.get(), app.line().args)) {
    return;
  }
  app.Perform("", "cmd-setcfg", std::move(config), "stored");
}

void RunConfigEdit(App& app) {
  kx::Object config = FetchConfig(app);
  if (config == nullptr) return;
  if (EditObject(app, "obj-config", &config)) {
    app.Perform("", "cmd-setcfg", std::move(config), "stored");
  }
}

void RunMonitorShow(App& app) {
  const kx::Object answer = app.Call("", "cmd-getmon", nullptr);
  if (answer == nullptr) return;
  kx_object* monitor = kx::Child(answer.get(), "objptr");
  Output& out = app.out();
  if (!out.human()) return out.Result(monitor, "");
  const bool all = kx::Enum(monitor, "montype") == kx_mon_incall;
  kx_object* names = kx::Child(monitor, "names");
  if (!app.Has("quiet")) {
    out.Line(all ? names == nullptr ? "all calls" : "all calls except those of"
             : names == nullptr ? "no calls"
                                : "only the calls of");
  }
  for (kx_object* name : kx::Elements(names)) {
    out.Line(kx::TextOrEmpty(name, "rname"));
  }
}

void RunMonitorOnly(App& app) { SetMonitor(app, kx_mon_excall); }
void RunMonitorExcept(App& app) { SetMonitor(app, kx_mon_incall); }

}  // namespace client
