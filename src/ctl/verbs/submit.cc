// submit
//
// Each number is a command of its own, so that each has its own request and its
// own answer: a wrong number does not hold the others.
#include <climits>
#include <cstdlib>

#include "ctl/app/files.h"
#include "ctl/app/staging.h"
#include "ctl/book/pbook.h"
#include "ctl/format/format.h"
#include "ctl/verbs/actions.h"
#include "ctl/verbs/requests.h"

namespace client {
namespace {

// An option whose value goes into a field of one of the envelope's parts.
struct FieldOption {
  const char* option;
  const char* field;
};
constexpr FieldOption kCoverOptions[] = {
    {"cover", "coverpage"},
    {"subject", "subject"},
};
constexpr FieldOption kParamOptions[] = {
    {"retry", "retry"}, {"priority", "priority"}, {"resolution", "sendres"},
    {"queue", "queue"}, {"mail", "mailaddr"},
};

// The parts of every envelope: all but files and destination.
struct Parts {
  kx::Object cover;  // null: none
  kx::Object param;
  kx::Object tags;
  std::string note;
};

bool SetTime(App& app, kx_object* param) {
  const char* text = app.line().Value("at");
  if (text == nullptr) return true;
  time_t t;
  if (Status s = ParseTime(text, time(nullptr), &t); !s.ok()) {
    app.Fail("--at", s);
    return false;
  }
  return kx::SetTime(param, "sendtime", static_cast<int>(t)) == 0;
}

bool MakeTags(App& app, kx::Object* tags) {
  kx::ListBuilder list;
  for (const std::string& text : app.line().Values("tag")) {
    std::string name;
    std::string value;
    if (!SplitPair(text, &name, &value)) {
      app.Fail(krt_usage, "", "--tag: not NAME=VALUE: " + text);
      return false;
    }
    kx::Object tag = kx::Build("obj-localtag");
    if (!app.Set("--tag", tag.get(), "tagname", name) ||
        !app.Set("--tag " + name, tag.get(), "tagvalue", value)) {
      return false;
    }
    list.Append(std::move(tag));
  }
  *tags = list.Take();
  return true;
}

bool ReadNote(App& app, std::string* note) {
  *note = app.ValueOr("note", "");
  if (note->empty() || (*note)[0] != '@') return true;
  const std::string path = note->substr(1);
  if (Status s = ReadWhole(path, note); !s.ok()) {
    app.Fail("--note", s);
    return false;
  }
  return true;
}

bool MakeParts(App& app, Parts* parts) {
  kx::Object cover = kx::Build("obj-cover");
  parts->param = kx::Build("obj-param");
  for (const FieldOption& row : kCoverOptions) {
    if (!app.SetFromOption(cover.get(), row.field, row.option)) return false;
  }
  for (const FieldOption& row : kParamOptions) {
    if (!app.SetFromOption(parts->param.get(), row.field, row.option)) {
      return false;
    }
  }
  if (const char* when = app.line().Value("notify"); when != nullptr) {
    kx::SetText(parts->param.get(), "notify",
                (std::string("not-") + when).c_str());
  }
  if (!SetTime(app, parts->param.get()) || !MakeTags(app, &parts->tags) ||
      !ReadNote(app, &parts->note)) {
    return false;
  }
  if (app.Has("cover") || app.Has("subject") || app.Has("note")) {
    parts->cover = std::move(cover);
  }
  return true;
}

// Adds the destinations that one --to names.
bool AddDestinations(App& app, const std::string& to, kx::ListBuilder* list) {
  if (to.size() > 1 && to[0] == '@') {
    return LookUpDestinations(app, to.substr(1), list);
  }
  kx::Object dest = kx::Build("obj-dest");
  if (to.empty()) {
    app.Fail(krt_usage, "", "--to: no number");
    return false;
  }
  if (!app.Set("--to", dest.get(), "tofnum", to) ||
      !app.SetFromOption(dest.get(), "toname", "name") ||
      !app.SetFromOption(dest.get(), "tocomp", "company")) {
    return false;
  }
  list->Append(std::move(dest));
  return true;
}

// A path that the server can use: absolute, and short enough.
bool SetPath(App& app, kx_object* obj, const char* field,
             const std::string& path) {
  char resolved[PATH_MAX];
  if (path[0] != '/' && realpath(path.c_str(), resolved) != nullptr) {
    return app.Set(path, obj, field, resolved);
  }
  return app.Set(path, obj, field, path);
}

// The list of files of one command, staged for it.
bool MakeFiles(App& app, const std::vector<Source>& sources, Staging* staging,
               kx::Object* files) {
  kx::ListBuilder list;
  for (const Source& source : sources) {
    std::string path = source.path;
    if (!app.Has("no-copy") || path == "-") {
      if (Status s = staging->Add(source, &path); !s.ok()) {
        app.Fail(source.path, s);
        return false;
      }
    }
    kx::Object file = kx::Build("obj-file");
    if (!SetPath(app, file.get(), "pathname", path)) return false;
    kx::SetText(file.get(), "filetype", source.type.c_str());
    list.Append(std::move(file));
  }
  *files = list.Take();
  return true;
}

bool MakeCover(App& app, const Parts& parts, Staging* staging,
               kx::Object* cover) {
  if (parts.cover == nullptr) return true;
  cover->reset(Kfx_Copy_Obj(parts.cover.get()));
  if (parts.note.empty()) return true;
  std::string path;
  if (Status s = staging->AddText(parts.note, &path); !s.ok()) {
    app.Fail("--note", s);
    return false;
  }
  return app.Set("--note", cover->get(), "notefile", path);
}

// Fills the command's envelope; false after reporting.
bool FillEnvelope(App& app, const Parts& parts,
                  const std::vector<Source>& sources, kx_object* dest,
                  Staging* staging, kx_object* cmd) {
  kx::Object files;
  kx::Object cover;
  if (!MakeFiles(app, sources, staging, &files) ||
      !MakeCover(app, parts, staging, &cover)) {
    return false;
  }
  kx::Object to(Kfx_Copy_Obj(dest));
  // Tags belong to a destination, though the command line has them for all.
  if (parts.tags != nullptr) {
    kx::SetChild(to.get(), "ltags", kx::Object(Kfx_Copy_Obj(parts.tags.get())));
  }
  kx::ListBuilder destinations;
  destinations.Append(std::move(to));
  kx::Object envelope = kx::Build("obj-env");
  kx::SetChild(envelope.get(), "destptr", destinations.Take());
  kx::SetChild(envelope.get(), "fileptr", std::move(files));
  kx::SetChild(envelope.get(), "coverptr", std::move(cover));
  kx::SetChild(envelope.get(), "paramptr",
               kx::Object(Kfx_Copy_Obj(parts.param.get())));
  return kx::SetChild(cmd, "objptr", std::move(envelope)) == 0;
}

// Shows the request that was made; its number, or "" when the answer has none.
std::string ShowQueued(App& app, const std::string& number, kx_object* answer) {
  kx_object* made = kx::Child(answer, "objptr");
  std::string seqno;
  // Where the queueing side answers it is the request; a daemon that answers by
  // itself knows no number.
  if (Kfx_Field_Type(made, "seqno") != -1) {
    seqno = kx::TextOrEmpty(made, "seqno");
  }
  std::string line = seqno;
  if (!app.Has("quiet")) {
    line = seqno.empty() ? "request" : "request " + seqno;
    line += " queued for " + number;
  }
  std::vector<JsonMember> more;
  if (Kfx_Field_Type(made, "tofnum") == -1) {
    more.emplace_back("tofnum", JsonString(number));
  }
  app.out().Result(made != nullptr ? made : answer, line, more);
  return seqno;
}

// Sends the files to one destination; the request's number, or "".
std::string SubmitTo(App& app, const Parts& parts,
                     const std::vector<Source>& sources, kx_object* dest) {
  const std::string number = kx::TextOrEmpty(dest, "tofnum");
  if (app.interrupted()) {
    app.Fail(krt_interrupted, number, "interrupted, not sent");
    return "";
  }
  kx::Object cmd = app.link().Command("cmd-sendfax", nullptr);
  std::string name;
  if (Status s = app.link().Name(cmd.get(), &name); !s.ok()) {
    app.Fail(number, s);
    return "";
  }
  Staging staging(app.link().place().spool, name, app.dry_run());
  if (!FillEnvelope(app, parts, sources, dest, &staging, cmd.get())) return "";
  const kx::Object answer = app.Deliver(number, std::move(cmd), &name);
  const int code = app.last_code();
  // Under way without an answer: the copies may still be taken.
  if (answer == nullptr && (code == krt_ok || code == krt_unknown)) {
    staging.Keep();
  }
  return answer == nullptr ? "" : ShowQueued(app, number, answer.get());
}

bool OpenSources(App& app, std::vector<Source>* sources) {
  for (const std::string& path : app.line().args) {
    Source source;
    if (Status s = OpenSource(path, &source); !s.ok()) {
      app.Fail("", s);
      return false;
    }
    sources->push_back(std::move(source));
  }
  return true;
}

}  // namespace

void RunSubmit(App& app) {
  const std::vector<std::string> numbers = app.line().Values("to");
  if (numbers.empty()) {
    return app.Fail(krt_usage, "", "submit: needs --to NUMBER");
  }
  // All that can be wrong is looked for before the first command is sent: a
  // submit goes to every destination or, by a typing error, to none.
  std::vector<Source> sources;
  Parts parts;
  if (!OpenSources(app, &sources) || !MakeParts(app, &parts) ||
      !app.Connect()) {
    return;
  }
  kx::ListBuilder destinations;
  for (const std::string& to : numbers) {
    if (!AddDestinations(app, to, &destinations)) return;
  }
  std::vector<std::string> seqnos;
  for (kx_object* dest : kx::Elements(destinations.head())) {
    const std::string seqno = SubmitTo(app, parts, sources, dest);
    if (!seqno.empty()) seqnos.push_back(seqno);
  }
  if (app.Has("wait") && !seqnos.empty()) AwaitRequests(app, seqnos);
}

}  // namespace client
