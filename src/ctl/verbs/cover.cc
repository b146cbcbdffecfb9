// cover list, tags, match
#include "ctl/app/app.h"
#include "ctl/verbs/actions.h"

namespace client {

void RunCoverList(App& app) {
  kx::Object request = kx::Build("obj-reqlst");
  kx::SetText(request.get(), "listtype",
              app.Has("all") ? "lst-allcovers" : "lst-covers");
  const kx::Object answer = app.Call("", "cmd-reslist", std::move(request));
  app.out().Table(kx::Child(kx::Child(answer.get(), "objptr"), "listptr"));
}

void RunCoverTags(App& app) {
  kx::Object cover = kx::Build("obj-resource");
  if (!app.Set(app.arg(0), cover.get(), "rname", app.arg(0))) return;
  const kx::Object answer =
      app.Call(app.arg(0), "cmd-cvrtags", std::move(cover));
  app.out().Table(kx::Child(kx::Child(answer.get(), "objptr"), "listptr"));
}

void RunCoverMatch(App& app) {
  kx::ListBuilder tags;
  for (const std::string& name : app.line().args) {
    kx::Object tag = kx::Build("obj-cvrtag");
    if (!app.Set(name, tag.get(), "tagname", name)) return;
    tags.Append(std::move(tag));
  }
  const kx::Object answer = app.Call("", "cmd-cvrmatch", tags.Take());
  if (answer == nullptr) return;
  kx_object* covers = kx::Child(answer.get(), "objptr");
  app.out().Table(covers);
  if (covers == nullptr) app.Worsen(krt_refused);
}

}  // namespace client
