// run, raw, collect
#include <sys/stat.h>
#include <unistd.h>

#include "ctl/app/app.h"
#include "ctl/app/files.h"
#include "ctl/app/staging.h"
#include "ctl/app/textform.h"
#include "ctl/verbs/actions.h"
#include "link/diagnosis.h"
#include "util/kutident.h"

namespace client {
namespace {

// Whether somebody else could exchange what this user makes in the current
// folder. A user's login group is taken for that user.
bool IsOthersFolder() {
  struct stat st;
  if (stat(".", &st) != 0) return true;
  if (st.st_uid != geteuid() && st.st_uid != 0) return true;
  const bool group = (st.st_mode & S_IWGRP) != 0 && st.st_gid != 0 &&
                     static_cast<int>(st.st_gid) != Kut_login_gid(st.st_uid);
  return (st.st_mode & S_ISVTX) == 0 && (group || (st.st_mode & S_IWOTH) != 0);
}

// A folder for the files that an answer may carry, which nobody else keeps once
// it is taken. Their names are the server's choice: so it must stay the one
// that was made.
class Unpacking {
 public:
  // Makes it in the current folder or, where that cannot be or is not safe,
  // with the temporary files.
  Status Make() {
    if (!IsOthersFolder() && dir_.Make(".").ok()) return {};
    return dir_.Make(TemporaryParent());
  }
  const char* path() const { return dir_.path().c_str(); }
  // Keeps the folder when something came.
  void Settle(App& app) {
    if (dir_.empty()) return;
    app.Note("files: " + dir_.path());
    dir_.Keep();
  }

 private:
  PrivateDir dir_;
};

// Shows a whole response, as the protocol has it.
void ShowEnvelope(App& app, const std::string& subject, kx_object* answer) {
  if (app.out().human()) {
    app.out().Text(answer);
  } else {
    app.out().Result(answer, "");
  }
  if (kx::Number(answer, "result") != 0) {
    app.Fail(StatusOfResult(answer), subject, Refusal(answer).text);
  }
}

void ShowOutput(App& app, kx_object* result) {
  if (!app.out().human() || Kfx_Is_Obj_Type(result, "obj-msg") != 1) {
    if (result != nullptr) app.out().Details(result);
    return;
  }
  for (kx_object* line : kx::Elements(kx::Child(result, "lines"))) {
    const std::string text = kx::TextOrEmpty(line, "text");
    app.out().Line(text == " " ? "" : text);
  }
}

bool FillExtern(App& app, kx_object* request) {
  // The server splits the command at white space, so the program's name is one
  // word and everything else an argument of its own.
  if (app.arg(0).find_first_of(" \t") != std::string::npos) {
    app.Fail(krt_bad_data, app.arg(0), "the program's name has a blank in it");
    return false;
  }
  if (!app.Set(app.arg(0), request, "cmdstr", app.arg(0))) return false;
  kx::SetBool(request, "retobj", app.Has("object"));
  kx::ListBuilder args;
  for (size_t i = 1; i < app.args(); ++i) {
    // Unset, it would not arrive.
    if (app.arg(i).empty()) {
      app.Fail(krt_bad_data, app.arg(0), "an empty argument cannot be sent");
      return false;
    }
    kx::Object arg = kx::Build("obj-arg");
    kx::SetBool(arg.get(), "ispath", false);
    if (!app.Set(app.arg(i), arg.get(), "argstr", app.arg(i))) return false;
    args.Append(std::move(arg));
  }
  kx::SetChild(request, "args", args.Take());
  return true;
}

// May the command be sent under the name in it?
bool MaySend(App& app, kx_object* cmd) {
  // The daemon decides by the file's owner in any case. Here it is said in
  // words that name the field.
  const char* client = kx::Text(cmd, "clientid");
  if (client == nullptr || app.identity().user == client || MayActForOthers()) {
    return true;
  }
  app.Fail(krt_no_permission, "",
           std::string("clientid=") + client + ": that is somebody else");
  return false;
}

}  // namespace

void RunRun(App& app) {
  if (!app.Connect()) return;
  kx::Object request = kx::Build("obj-extcmd");
  if (!FillExtern(app, request.get())) return;
  const kx::Object answer = app.Transact(
      app.arg(0), app.link().Command("cmd-extcmd", std::move(request)), nullptr,
      nullptr);
  if (answer == nullptr) return;
  kx_object* result = kx::Child(answer.get(), "objptr");
  if (kx::Number(answer.get(), "result") == 0) return ShowOutput(app, result);
  // What the program wrote to its standard error says more than the number.
  for (kx_object* line : kx::Elements(kx::Child(result, "lines"))) {
    app.Fail(krt_refused, app.arg(0), kx::TextOrEmpty(line, "text"));
  }
  app.Accepted(app.arg(0), answer.get());
}

void RunRaw(App& app) {
  const std::string path = app.args() > 0 ? app.arg(0) : "-";
  std::string text;
  if (Status s = ReadWhole(path, &text); !s.ok()) return app.Fail("", s);
  if (text.find_first_not_of(" \t\r\n") == text.npos) {
    return app.Fail(krt_no_input, "", path + ": is empty");
  }
  kx::Object cmd;
  if (Status s = ParseObject(text, "obj-cmdrsp", &cmd); !s.ok()) {
    return app.Fail(path, s);
  }
  if (!app.Connect() || !MaySend(app, cmd.get())) return;
  app.link().Identify(cmd.get());
  // Before it is sent: an answer that cannot be unpacked would be lost.
  Unpacking files;
  if (Status s = files.Make(); !s.ok()) return app.Fail("", s);
  const kx::Object answer =
      app.Transact("", std::move(cmd), nullptr, files.path());
  if (answer == nullptr) return;
  files.Settle(app);
  ShowEnvelope(app, "", answer.get());
}

void RunCollect(App& app) {
  if (!app.Connect()) return;
  for (const std::string& name : app.line().args) {
    if (!IsExchangeName(name)) {
      app.Fail(krt_usage, "", "\"" + name + "\" is no exchange (NNNN-RRR)");
      continue;
    }
    if (app.dry_run()) {
      app.Note("would take " + app.link().place().spool + "/" + name + ".rsp");
      continue;
    }
    Unpacking files;
    kx::Object answer;
    Status s = files.Make();
    if (s.ok()) s = app.link().Collect(name, files.path(), &answer);
    if (!s.ok()) {
      app.Fail(name, s);
      continue;
    }
    // The copies were kept for a daemon that has answered now.
    RemoveStaged(app.link().place().spool, name);
    files.Settle(app);
    ShowEnvelope(app, name, answer.get());
  }
}

}  // namespace client
