// pb group list, show, add, edit, rm, join, leave
#include "ctl/book/actions.h"
#include "ctl/book/pbook.h"

namespace client {
namespace {

kx::Object KeyCommand(App& app, int pbcmd, const std::string& key) {
  kx::Object pbcom = BookCommand(app, pbcmd);
  return app.Set(key, pbcom.get(), "pbkey", key) ? std::move(pbcom) : nullptr;
}

// The group as stored, or null after reporting.
kx::Object FetchGroup(App& app, const std::string& alias) {
  kx::Object pbcom = KeyCommand(app, kx_pbc_grpget, alias);
  if (pbcom == nullptr) return nullptr;
  kx::SetEnum(pbcom.get(), "rcmd", kx_pbc_equal);
  const kx::Object book = QueryBook(app, alias, std::move(pbcom));
  kx_object* group = kx::Child(book.get(), "objptr");
  return kx::Object(group == nullptr ? nullptr : Kfx_Copy_Obj(group));
}

kx::Object MakeGroup(App& app, const std::string& alias,
                     const std::string& description) {
  kx::Object group = kx::Build("obj-group");
  if (!app.Set(alias, group.get(), "galias", alias) ||
      !app.Set(alias, group.get(), "gdesc", description)) {
    return nullptr;
  }
  return group;
}

void SendGroup(App& app, int pbcmd, kx::Object group, const char* done) {
  if (group == nullptr) return;
  const std::string alias = kx::TextOrEmpty(group.get(), "galias");
  kx::Object shown(Kfx_Copy_Obj(group.get()));
  kx::Object pbcom = BookCommand(app, pbcmd);
  kx::SetChild(pbcom.get(), "objptr", std::move(group));
  if (CallBook(app, alias, std::move(pbcom)) == nullptr) return;
  app.out().Done(shown.get(), alias + " " + done);
}

// Sends the memberships of all persons named, under the spellings that person
// and group are stored in: by those the server deletes them one day.
void SendMembers(App& app, int pbcmd, const char* done) {
  const kx::Object group = FetchGroup(app, app.arg(0));
  if (group == nullptr) return;
  for (size_t i = 1; i < app.args(); ++i) {
    const kx::Object person = FetchPerson(app, app.arg(i));
    if (person == nullptr) continue;
    const std::string alias = kx::TextOrEmpty(person.get(), "palias");
    kx::Object member = kx::Build("obj-member");
    kx::SetText(member.get(), "galias", kx::Text(group.get(), "galias"));
    kx::SetText(member.get(), "palias", alias.c_str());
    kx::Object shown(Kfx_Copy_Obj(member.get()));
    kx::Object pbcom = BookCommand(app, pbcmd);
    kx::SetChild(pbcom.get(), "objptr", std::move(member));
    if (CallBook(app, alias, std::move(pbcom)) == nullptr) continue;
    app.out().Done(shown.get(), alias + " " + done + " " +
                                    kx::TextOrEmpty(group.get(), "galias"));
  }
}

}  // namespace

void RunPbGroupList(App& app) {
  if (app.args() == 0) return ShowEntries(app, BookCommand(app, kx_pbc_lstgrp));
  const kx::Object person = FetchPerson(app, app.arg(0));
  if (person == nullptr) return;
  ShowEntries(app, KeyCommand(app, kx_pbc_lstmbp, app.arg(0)));
}

void RunPbGroupShow(App& app) {
  const kx::Object group = FetchGroup(app, app.arg(0));
  if (group == nullptr) return;
  ShowEntries(app, KeyCommand(app, kx_pbc_lstmbg, app.arg(0)));
}

void RunPbGroupAdd(App& app) {
  SendGroup(app, kx_pbc_grpadd,
            MakeGroup(app, app.arg(0), app.args() > 1 ? app.arg(1) : ""),
            "added");
}

void RunPbGroupEdit(App& app) {
  // An unset description would leave the old one.
  const std::string description = app.arg(1).empty() ? " " : app.arg(1);
  SendGroup(app, kx_pbc_grpupd, MakeGroup(app, app.arg(0), description),
            "changed");
}

void RunPbGroupRm(App& app) {
  for (const std::string& alias : app.line().args) {
    const kx::Object group = FetchGroup(app, alias);
    if (group == nullptr) continue;
    const std::string stored = kx::TextOrEmpty(group.get(), "galias");
    kx::Object pbcom = KeyCommand(app, kx_pbc_grpdel, stored);
    if (CallBook(app, alias, std::move(pbcom)) == nullptr) continue;
    app.out().Done(group.get(), stored + " deleted");
  }
}

void RunPbGroupJoin(App& app) {
  SendMembers(app, kx_pbc_memadd, "is a member of");
}

void RunPbGroupLeave(App& app) {
  SendMembers(app, kx_pbc_memdel, "is no member any more of");
}

}  // namespace client
