// pb list, find, show, add, edit, rm, count, init, drop
#include <climits>

#include "ctl/app/editor.h"
#include "ctl/book/actions.h"
#include "ctl/book/pbook.h"
#include "ctl/format/format.h"
#include "ctl/format/person.h"

namespace client {
namespace {

// The command for the persons that --sort, --group, --from and --to mean, or
// null after reporting.
kx::Object PersonsCommand(App& app, int plain, int ranged, const char* group) {
  const bool range = app.Has("from") || app.Has("to");
  kx::Object pbcom = BookCommand(app, range ? ranged : plain);
  kx::SetText(pbcom.get(), "pbsort",
              ("pbs-" + app.ValueOr("sort", "alias")).c_str());
  if (!app.SetFromOption(pbcom.get(), "pbbeg", "from") ||
      !app.SetFromOption(pbcom.get(), "pbend", "to") ||
      !app.SetFromOption(pbcom.get(), group, "group")) {
    return nullptr;
  }
  return pbcom;
}

bool Contains(kx_object* person, const std::string& wanted) {
  for (const char* name : PersonNames()) {
    if (Lower(PersonText(person, name)).find(wanted) != std::string::npos) {
      return true;
    }
  }
  return false;
}

// Sets NAME=VALUE words, combined names included.
bool SetPersonPairs(App& app, kx_object* person, size_t first) {
  for (size_t i = first; i < app.args(); ++i) {
    std::string name;
    std::string value;
    if (!SplitPair(app.arg(i), &name, &value)) {
      app.Fail(krt_usage, "", "not FIELD=VALUE: " + app.arg(i));
      return false;
    }
    const char* known = FindPersonName(name);
    if (known == nullptr) {
      app.Fail(krt_usage, "",
               "unknown field \"" + name + "\"" +
                   DidYouMean(Lower(name), PersonNames()));
      return false;
    }
    if (Status s = SetPersonText(person, known, value); !s.ok()) {
      app.Fail("", s);
      return false;
    }
  }
  return true;
}

// Sends a person with the sub-command, and shows it.
void SendPerson(App& app, int pbcmd, kx::Object person, const char* done) {
  const std::string alias = kx::TextOrEmpty(person.get(), "palias");
  kx::Object shown(Kfx_Copy_Obj(person.get()));
  kx::Object pbcom = BookCommand(app, pbcmd);
  kx::SetChild(pbcom.get(), "objptr", std::move(person));
  if (CallBook(app, alias, std::move(pbcom)) == nullptr) return;
  app.out().Result(shown.get(), app.Has("quiet") ? alias : alias + " " + done);
}

// A new person always has an alias: the server would make one of the time of
// day, and two in a second would collide.
bool GiveAlias(App& app, kx_object* person) {
  if (kx::Text(person, "palias") != nullptr) return true;
  const std::string from =
      PersonText(person, "name") + kx::TextOrEmpty(person, "company");
  std::set<std::string> used;
  for (;;) {
    // Each round asks for the next name: `used` has those that were taken.
    kx::SetText(person, "palias", nullptr);
    MakeAlias(person, from, &used);
    bool absent = false;
    const kx::Object taken =
        FetchPerson(app, kx::Text(person, "palias"), &absent);
    if (absent) return true;
    if (taken == nullptr) return false;
  }
}

// An update leaves fields that are unset as they are, so one that the user
// emptied is sent as a blank.
void BlankCleared(kx_object* before, kx_object* after) {
  for (const char* field : PersonFields()) {
    if (kx::Text(before, field) != nullptr &&
        kx::Text(after, field) == nullptr) {
      kx::SetText(after, field, " ");
    }
  }
}

}  // namespace

void RunPbList(App& app) {
  long max = LONG_MAX;
  if (const char* text = app.line().Value("max");
      text != nullptr && !ParseNumber(text, 1, INT_MAX, &max)) {
    return app.Fail(krt_usage, "", "--max: not a number");
  }
  ShowEntries(app, PersonsCommand(app, kx_pbc_lstper, kx_pbc_lstprl, "galias"),
              max);
}

void RunPbFind(App& app) {
  kx::Object pbcom = BookCommand(app, kx_pbc_lstper);
  kx::SetEnum(pbcom.get(), "pbsort", kx_pbs_alias);
  const std::string wanted = Lower(app.arg(0));
  kx::ListBuilder found;
  ForEachEntry(app, std::move(pbcom), [&](kx_object* person) {
    if (Contains(person, wanted)) {
      found.Append(kx::Object(Kfx_Copy_Obj(person)));
    }
    return true;
  });
  app.out().Table(found.head());
  if (found.count() == 0) app.Worsen(krt_refused);
}

void RunPbShow(App& app) {
  bool first = true;
  for (const std::string& alias : app.line().args) {
    kx::Object pbcom = BookCommand(app, kx_pbc_perget);
    kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_alias);
    if (!app.Set(alias, pbcom.get(), "pbkey", alias)) continue;
    const kx::Object book = CallBook(app, alias, std::move(pbcom));
    if (book == nullptr) continue;
    if (!first) app.out().Line("");
    first = false;
    app.out().Details(kx::Child(book.get(), "objptr"));
  }
}

void RunPbAdd(App& app) {
  kx::Object person = kx::Build("obj-person");
  if (!SetPersonPairs(app, person.get(), 0) || !GiveAlias(app, person.get())) {
    return;
  }
  SendPerson(app, kx_pbc_peradd, std::move(person), "added");
}

void RunPbEdit(App& app) {
  // Before anything is asked: a wrong field needs no daemon.
  kx::Object checked = kx::Build("obj-person");
  if (!SetPersonPairs(app, checked.get(), 1)) return;
  kx::Object person = FetchPerson(app, app.arg(0));
  if (person == nullptr) return;
  const kx::Object before(Kfx_Copy_Obj(person.get()));
  if (app.args() > 1) {
    if (!SetPersonPairs(app, person.get(), 1)) return;
  } else if (!EditObject(app, "obj-person", &person)) {
    return;
  }
  // The server finds the person by it, and would change another's.
  if (AliasKey(kx::TextOrEmpty(person.get(), "palias")) !=
      AliasKey(kx::TextOrEmpty(before.get(), "palias"))) {
    return app.Fail(krt_bad_data, app.arg(0),
                    "palias: an alias cannot be changed");
  }
  BlankCleared(before.get(), person.get());
  SendPerson(app, kx_pbc_perupd, std::move(person), "changed");
}

void RunPbRm(App& app) {
  for (const std::string& alias : app.line().args) {
    // The server deletes the memberships of the spelling that it is given.
    const kx::Object person = FetchPerson(app, alias);
    if (person == nullptr) continue;
    const std::string stored = kx::TextOrEmpty(person.get(), "palias");
    kx::Object pbcom = BookCommand(app, kx_pbc_perdel);
    kx::SetText(pbcom.get(), "pbkey", stored.c_str());
    if (CallBook(app, alias, std::move(pbcom)) == nullptr) continue;
    app.out().Done(person.get(), stored + " deleted");
  }
}

void RunPbCount(App& app) {
  kx::Object pbcom = app.Has("groups") ? BookCommand(app, kx_pbc_cntgrp)
                                       : PersonsCommand(app, kx_pbc_cntper,
                                                        kx_pbc_cntper, "pbkey");
  if (pbcom == nullptr) return;
  // Without bounds the server counts memberships, and takes a group after the
  // last one for an error. The bound of the empty text makes it count persons.
  if (app.Has("group") && !app.Has("from") && !app.Has("to")) {
    kx::SetText(pbcom.get(), "pbbeg", " ");
  }
  const kx::Object book = CallBook(app, "", std::move(pbcom));
  if (book == nullptr) return;
  app.out().Result(book.get(), kx::TextOrEmpty(book.get(), "pbmax"));
}

void RunPbInit(App& app) {
  const kx::Object book = CallBook(app, "", BookCommand(app, kx_pbc_create));
  if (book == nullptr) return;
  app.out().Done(book.get(), "the phone book is there");
}

void RunPbDrop(App& app) {
  const std::string book_name = app.ValueOr("book", "user");
  if (!app.dry_run() &&
      !app.Confirm("Delete the " + book_name + " phone book for good?")) {
    return app.Fail(krt_usage, "", "nothing deleted; --yes deletes");
  }
  const kx::Object book = CallBook(app, "", BookCommand(app, kx_pbc_delete));
  if (book == nullptr) return;
  app.out().Done(book.get(), "the phone book is gone");
}

}  // namespace client
