#include "ctl/book/pbook.h"

#include "ctl/format/person.h"

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

// Sends a phone-book command whose refusal the caller looks at: the answer, or
// null when there is none, which has been reported.
kx::Object Ask(App& app, kx::Object pbcom) {
  if (!app.Connect()) return nullptr;
  const kx::Object cmd = app.link().Command("cmd-pbcmd", std::move(pbcom));
  kx::Object answer;
  Status s = app.link().Call(cmd.get(), nullptr, &answer);
  if (answer == nullptr) app.Fail("", s);
  return answer;
}

enum class Found {
  kYes,
  kNo,
  kFailed,  // the command failed, which has been reported
};

// What an answer of Ask says of an alias.
Found IsThere(App& app, const std::string& alias, kx_object* answer) {
  if (answer == nullptr) return Found::kFailed;
  switch (kx::Number(answer, "result")) {
    case kx_err_person:
    case kx_err_group:
    case kx_err_no_book:
      return Found::kNo;
    default:
      return app.Accepted("@" + alias, answer) ? Found::kYes : Found::kFailed;
  }
}

kx_object* ContentOf(const kx::Object& answer) {
  return kx::Child(kx::Child(answer.get(), "objptr"), "objptr");
}

kx::Object AliasCommand(App& app, int pbcmd, int kind,
                        const std::string& alias) {
  kx::Object pbcom = BookCommand(app, pbcmd);
  kx::SetEnum(pbcom.get(), "pbtype", kind);
  kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_alias);
  return app.Set(alias, pbcom.get(), "pbkey", alias) ? std::move(pbcom)
                                                     : nullptr;
}

// Adds a person's number; that there is none is reported.
bool AddDestination(App& app, kx_object* person, kx::ListBuilder* list) {
  const std::string number = PersonText(person, "fax");
  if (number.empty()) {
    app.Fail(krt_bad_data, std::string("@") + kx::TextOrEmpty(person, "palias"),
             "the person has no fax number");
    return false;
  }
  kx::Object dest = kx::Build("obj-dest");
  kx::SetText(dest.get(), "tofnum", number.c_str());
  // Both names together may be one character too long.
  if (kx::SetText(dest.get(), "toname", PersonText(person, "name").c_str()) !=
      0) {
    kx::SetText(dest.get(), "toname", kx::Text(person, "lname"));
  }
  kx::SetText(dest.get(), "tocomp", kx::Text(person, "company"));
  return list->Append(std::move(dest));
}

// Looks an alias up in one book, as a person's and then as a group's. A group's
// members without a number do not hold the others.
Found LookUpIn(App& app, int kind, const std::string& alias,
               kx::ListBuilder* list) {
  kx::Object pbcom = AliasCommand(app, kx_pbc_perget, kind, alias);
  if (pbcom == nullptr) return Found::kFailed;
  kx::Object answer = Ask(app, std::move(pbcom));
  Found found = IsThere(app, alias, answer.get());
  if (found == Found::kFailed) return found;
  if (found == Found::kYes) {
    const bool added = AddDestination(app, ContentOf(answer), list);
    return added ? Found::kYes : Found::kFailed;
  }
  // Persons and groups have one space of names in people's eyes, though not in
  // the book: the person goes first.
  pbcom = BookCommand(app, kx_pbc_lstmbg);
  kx::SetEnum(pbcom.get(), "pbtype", kind);
  kx::SetText(pbcom.get(), "pbkey", alias.c_str());
  kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_first);
  answer = Ask(app, std::move(pbcom));
  found = IsThere(app, alias, answer.get());
  if (found != Found::kYes) return found;
  for (kx_object* person : kx::Elements(ContentOf(answer))) {
    AddDestination(app, person, list);
  }
  return ContentOf(answer) != nullptr ? Found::kYes : Found::kNo;
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
  const kx::Object answer = Ask(app, std::move(pbcom));
  if (answer == nullptr) return nullptr;
  if (absent != nullptr) {
    *absent = kx::Number(answer.get(), "result") == kx_err_person;
    if (*absent) return nullptr;
  }
  if (!app.Accepted(alias, answer.get())) return nullptr;
  return kx::Object(Kfx_Copy_Obj(ContentOf(answer)));
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
    // The answer's object has the cursors; its entries would only travel back.
    pbcom = std::move(book);
    kx::SetChild(pbcom.get(), "objptr", nullptr);
    kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_next);
  }
}

void ShowEntries(App& app, kx::Object pbcom, long max) {
  if (pbcom == nullptr) return;
  // Only the first page's command can be shown: the next one depends on its
  // answer.
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
  Found found = LookUpIn(app, KindOf(app), alias, list);
  if (found == Found::kNo && either) {
    found = LookUpIn(app, kx_pbt_sys, alias, list);
  }
  if (found == Found::kNo) {
    app.Fail(krt_refused, "@" + alias, "not in the phone book");
  }
  return found == Found::kYes;
}

}  // namespace client
