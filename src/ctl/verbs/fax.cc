// fax list, get, put, rm, print, route
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cm/cmpaths.h"
#include "ctl/app/app.h"
#include "ctl/app/files.h"
#include "ctl/app/staging.h"
#include "ctl/verbs/actions.h"
#include "ctl/verbs/lists.h"
#include "util/kutfile.h"

namespace client {
namespace {

// The "obj-faxinfo" of a fax in the user's own queue, or null after reporting.
kx::Object FaxInfo(App& app, const std::string& name) {
  if (!app.Connect()) return nullptr;
  kx::Object info = kx::Build("obj-faxinfo");
  kx::SetText(info.get(), "clientid", app.identity().user.c_str());
  return app.Set(name, info.get(), "filename", name) ? std::move(info)
                                                     : nullptr;
}

// Sends one command for each fax named.
void ForEachFax(App& app, const char* cmdtype, const char* done,
                kx::Object (*argument)(kx::Object info)) {
  for (const std::string& name : app.line().args) {
    kx::Object info = FaxInfo(app, name);
    if (info == nullptr) continue;
    kx::Object shown(Kfx_Copy_Obj(info.get()));
    if (app.Call(name, cmdtype, argument(std::move(info))) == nullptr) continue;
    app.out().Done(shown.get(), name + " " + done);
  }
}

// The file that the answer brought, unpacked into `dir`, open. A path that it
// only names is nobody's to open.
Status OpenFetched(kx_object* answer, const PrivateDir& dir, UniqueFd* fd) {
  const std::string path =
      kx::TextOrEmpty(kx::Child(answer, "objptr"), "pathname");
  if (path != dir.path() + "/" + Kut_basename(path.c_str())) {
    return {krt_internal, "the answer carries no file"};
  }
  fd->reset(Kut_open_regular(AT_FDCWD, path.c_str(), O_NOFOLLOW));
  if (!fd->valid()) return SystemFailure(krt_io, path);
  return {};
}

kx::Object StoreRequest(App& app, kx::Object info, const Source& source,
                        const std::string& path) {
  kx::Object file = kx::Build("obj-file");
  if (!app.Set(source.path, file.get(), "pathname", path)) return nullptr;
  kx::SetText(file.get(), "filetype", source.type.c_str());
  kx::Object request = kx::Build("obj-reqsto");
  kx::SetChild(request.get(), "finfoptr", std::move(info));
  kx::SetChild(request.get(), "filobjptr", std::move(file));
  return request;
}

void Put(App& app, const Source& source, const std::string& name) {
  kx::Object info = FaxInfo(app, name);
  if (info == nullptr) return;
  kx::Object shown(Kfx_Copy_Obj(info.get()));
  // The name comes before the argument, since the copy's name is made of it.
  kx::Object cmd = app.link().Command("cmd-imgstore", nullptr);
  std::string exchange;
  if (Status s = app.link().Name(cmd.get(), &exchange); !s.ok()) {
    return app.Fail(name, s);
  }
  Staging staging(app.link().place().spool, exchange, app.dry_run());
  std::string path;
  if (Status s = staging.Add(source, &path); !s.ok()) return app.Fail(name, s);
  kx::Object request = StoreRequest(app, std::move(info), source, path);
  if (request == nullptr) return;
  kx::SetChild(cmd.get(), "objptr", std::move(request));
  const kx::Object answer = app.Deliver(name, std::move(cmd), &exchange);
  const int code = app.last_code();
  // Under way without an answer, by --no-wait or by an end of the wait: the
  // daemon may come for the copy yet.
  if (answer == nullptr && (code == krt_ok || code == krt_unknown)) {
    staging.Keep();
  }
  if (answer == nullptr) return;
  app.out().Done(shown.get(), name + " stored");
}

}  // namespace

void RunFaxList(App& app) { ShowMessageList(app, "lst-faxfiles"); }

void RunFaxGet(App& app) {
  const std::string& name = app.arg(0);
  const std::string target = app.ValueOr("output", name.c_str());
  if (!app.Has("output") && !cm_is_plain_name(name.c_str())) {
    return app.Fail(krt_bad_data, name, "not a plain file name");
  }
  kx::Object info = FaxInfo(app, name);
  if (info == nullptr) return;
  // Asked before the fax is fetched. That nothing is there now is a promise:
  // what appears meanwhile is not replaced.
  struct stat st;
  const bool replaces = target != "-" && lstat(target.c_str(), &st) == 0;
  if (replaces && !app.dry_run() &&
      !app.Confirm(target + " exists; replace it?")) {
    return app.Fail(krt_cannot_create, name,
                    target + " exists; --yes replaces it");
  }
  // The answer is unpacked beside nobody's files, and what came is taken from
  // there by its descriptor.
  PrivateDir dir;
  if (!app.dry_run()) {
    if (Status s = dir.Make(TemporaryParent()); !s.ok()) {
      return app.Fail(name, s);
    }
  }
  const kx::Object answer =
      app.Call(name, "cmd-imgret", std::move(info), dir.path().c_str());
  if (answer == nullptr) return;
  UniqueFd fd;
  Status s = OpenFetched(answer.get(), dir, &fd);
  const auto copy = [&](int to) { return CopyAll(fd.get(), to, name); };
  if (s.ok()) {
    s = target == "-" ? copy(STDOUT_FILENO)
        : replaces    ? ReplaceFile(target, copy)
                      : CreateFile(target, copy);
  }
  if (!s.ok()) return app.Fail(name, s);
  if (target == "-") return;
  kx_object* file = kx::Child(answer.get(), "objptr");
  // The result names where it is now; a path too long for the field is left
  // out.
  kx::SetText(file, "pathname", target.size() < 256 ? target.c_str() : nullptr);
  app.out().Done(file, name + " -> " + target);
}

void RunFaxPut(App& app) {
  Source source;
  if (Status s = OpenSource(app.arg(0), &source); !s.ok()) {
    return app.Fail("", s);
  }
  if (source.path == "-" && app.args() < 2) {
    return app.Fail(krt_usage, "", "fax put: standard input needs a NAME");
  }
  const std::string name =
      app.args() > 1 ? app.arg(1) : Kut_basename(source.path.c_str());
  if (!cm_is_plain_name(name.c_str())) {
    return app.Fail(krt_bad_data, name, "not a plain file name");
  }
  Put(app, source, name);
}

void RunFaxRm(App& app) {
  ForEachFax(app, "cmd-imgdel", "deleted",
             [](kx::Object info) { return info; });
}

void RunFaxPrint(App& app) {
  ForEachFax(app, "cmd-imgprint", "printed", [](kx::Object info) {
    kx::Object request = kx::Build("obj-reqprt");
    kx::SetChild(request.get(), "finfoptr", std::move(info));
    return request;
  });
}

void RunFaxRoute(App& app) {
  if (!app.Connect()) return;
  const std::string& name = app.arg(0);
  for (size_t i = 1; i < app.args(); ++i) {
    const std::string& user = app.arg(i);
    kx::Object route = kx::Build("obj-route");
    kx::SetText(route.get(), "fromid", app.identity().user.c_str());
    if (!app.Set(name, route.get(), "filename", name) ||
        !app.Set(user, route.get(), "toid", user)) {
      continue;
    }
    // The last one moves it: until then it must still be there.
    const bool move =
        app.Has("move") && i + 1 == app.args() && app.worst() == 0;
    std::string subject = name;
    subject.append(" ").append(user);
    std::string done = name;
    done.append(move ? " moved to " : " copied to ").append(user);
    app.Perform(subject, move ? "cmd-fwdfax" : "cmd-copyfax", std::move(route),
                done);
  }
}

}  // namespace client
