#include "client/pbook.h"

#include "client/person.h"

namespace client {
namespace {

bool Writes(int pbcmd) {
  switch (pbcmd) {
    case kx_pbc_peradd:
    case kx_pbc_perupd:
    case kx_pbc_perdel:
    case kx_pbc_grpadd:
    case kx_pbc_grpupd:
    case kx_pbc_grpdel:
    case kx_pbc_memadd:
    case kx_pbc_memdel:
      return true;
    default:
      return false;
  }
}

int KindOf(App& app) {
  return app.ValueOr("book", "user") == "system" ? kx_pbt_sys : kx_pbt_usr;
}

kx::Object BookOf(kx::Object answer) {
  kx_object* pbcom = kx::Child(answer.get(), "objptr");
  return kx::Object(pbcom == nullptr ? nullptr : Kfx_Copy_Obj(pbcom));
}

// Sends a phone-book command whose refusals the caller looks at: its result.
// -1: not answered, which has been reported.
int Ask(App& app, kx::Object pbcom, kx::Object* book) {
  if (!app.Connect()) return -1;
  kx::Object cmd = app.link().Command("cmd-pbcmd", std::move(pbcom));
  kx::Object answer;
  Status s = app.link().Call(cmd.get(), nullptr, &answer);
  if (answer == nullptr) {
    app.Fail("", s);
    return -1;
  }
  const int result = kx::Number(answer.get(), "result");
  *book = BookOf(std::move(answer));
  return result;
}

kx::Object AliasCommand(App& app, int pbcmd, int kind,
                        const std::string& alias) {
  kx::Object pbcom = BookCommand(app, pbcmd);
  kx::SetEnum(pbcom.get(), "pbtype", kind);
  kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_alias);
  return app.Set(alias, pbcom.get(), "pbkey", alias) ? std::move(pbcom)
                                                     : nullptr;
}

void AddDestination(kx_object* person, kx::ListBuilder* list) {
  kx::Object dest = kx::Build("obj-dest");
  kx::SetText(dest.get(), "tofnum", PersonText(person, "fax").c_str());
  // Both names together may be one character too long.
  if (kx::SetText(dest.get(), "toname", PersonText(person, "name").c_str()) !=
      0) {
    kx::SetText(dest.get(), "toname", kx::Text(person, "lname"));
  }
  kx::SetText(dest.get(), "tocomp", kx::Text(person, "company"));
  list->Append(std::move(dest));
}

// Looks an alias up in one book. 1: found, 0: not there, -1: failed.
int LookUpIn(App& app, int kind, const std::string& alias,
             kx::ListBuilder* list) {
  kx::Object pbcom = AliasCommand(app, kx_pbc_perget, kind, alias);
  kx::Object book;
  if (pbcom == nullptr) return -1;
  int result = Ask(app, std::move(pbcom), &book);
  if (result == 0) {
    kx_object* person = kx::Child(book.get(), "objptr");
    if (PersonText(person, "fax").empty()) {
      app.Fail(krt_bad_data, "@" + alias, "the person has no fax number");
      return -1;
    }
    AddDestination(person, list);
    return 1;
  }
  if (result == -1) return -1;
  pbcom = BookCommand(app, kx_pbc_lstmbg);
  kx::SetEnum(pbcom.get(), "pbtype", kind);
  kx::SetText(pbcom.get(), "pbkey", alias.c_str());
  kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_first);
  result = Ask(app, std::move(pbcom), &book);
  kx_object* members = result == 0 ? kx::Child(book.get(), "objptr") : nullptr;
  for (kx_object* person : kx::Elements(members)) {
    if (PersonText(person, "fax").empty()) continue;
    AddDestination(person, list);
  }
  return result == -1 ? -1 : members != nullptr ? 1 : 0;
}

}  // namespace

kx::Object BookCommand(App& app, int pbcmd) {
  kx::Object pbcom = kx::Build("obj-pbcom");
  kx::SetEnum(pbcom.get(), "pbcmd", pbcmd);
  kx::SetEnum(pbcom.get(), "pbtype", KindOf(app));
  kx::SetEnum(pbcom.get(), "pbmode",
              Writes(pbcmd) ? kx_pbm_write : kx_pbm_read);
  return pbcom;
}

kx::Object CallBook(App& app, const std::string& subject, kx::Object pbcom) {
  return BookOf(app.Call(subject, "cmd-pbcmd", std::move(pbcom)));
}

kx::Object QueryBook(App& app, const std::string& subject, kx::Object pbcom) {
  return BookOf(app.Query(subject, "cmd-pbcmd", std::move(pbcom)));
}

kx::Object FetchPerson(App& app, const std::string& alias, bool* absent) {
  kx::Object pbcom = AliasCommand(app, kx_pbc_perget, KindOf(app), alias);
  if (pbcom == nullptr) return nullptr;
  kx::Object book;
  if (absent == nullptr) {
    book = QueryBook(app, alias, std::move(pbcom));
  } else {
    const int result = Ask(app, std::move(pbcom), &book);
    *absent = result == kx_err_person;
  }
  kx_object* person = kx::Child(book.get(), "objptr");
  return kx::Object(person == nullptr ? nullptr : Kfx_Copy_Obj(person));
}

bool ForEachEntry(App& app, kx::Object pbcom,
                  const std::function<bool(kx_object* entry)>& each) {
  kx::SetNumber(pbcom.get(), "pbmax", kPage);
  // Lists of a range count from its beginning; the others go on from where the
  // cursors in the object stand.
  const bool counts = kx::Enum(pbcom.get(), "pbcmd") == kx_pbc_lstprl;
  int offset = 0;
  kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_first);
  for (;;) {
    if (counts) kx::SetNumber(pbcom.get(), "pboffset", offset);
    kx::Object book = QueryBook(app, "", std::move(pbcom));
    if (book == nullptr) return false;
    int count = 0;
    for (kx_object* entry : kx::Elements(kx::Child(book.get(), "objptr"))) {
      ++count;
      if (!each(entry)) return false;
    }
    if (count < kPage) return true;
    offset += count;
    pbcom = std::move(book);
    kx::SetChild(pbcom.get(), "objptr", nullptr);
    kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_next);
  }
}

void ShowEntries(App& app, kx::Object pbcom, long max) {
  if (pbcom == nullptr) return;
  if (app.dry_run()) {
    kx::SetNumber(pbcom.get(), "pbmax", kPage);
    kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_first);
    CallBook(app, "", std::move(pbcom));
    return;
  }
  kx::ListBuilder found;
  ForEachEntry(app, std::move(pbcom), [&](kx_object* entry) {
    found.Append(kx::Object(Kfx_Copy_Obj(entry)));
    return found.count() < max;
  });
  app.out().Table(found.head());
}

bool LookUpDestinations(App& app, const std::string& alias,
                        kx::ListBuilder* list) {
  const bool either = !app.Has("book");
  int found = LookUpIn(app, KindOf(app), alias, list);
  if (found == 0 && either) found = LookUpIn(app, kx_pbt_sys, alias, list);
  if (found == 0) {
    app.Fail(krt_refused, "@" + alias, "not in the phone book");
  }
  return found == 1;
}

}  // namespace client
