// pb import, pb export
#include "ctl/app/files.h"
#include "ctl/book/actions.h"
#include "ctl/book/pbook.h"
#include "ctl/book/pbtransfer.h"
#include "ctl/format/csv.h"
#include "ctl/format/format.h"
#include "ctl/format/person.h"
#include "ctl/format/vcard.h"

namespace client {
namespace {

const std::vector<std::string> kGroupHeading = {"galias", "gdesc", "palias"};

bool IsVcard(App& app, const std::string& path, const std::string& text) {
  const char* format = app.line().Value("format");
  if (format != nullptr) return std::string(format) == "vcard";
  const size_t dot = path.rfind('.');
  const std::string ext = dot == path.npos ? "" : Lower(path.substr(dot + 1));
  return ext == "vcf" || ext == "vcard" ||
         Lower(text.substr(0, 11)) == "begin:vcard";
}

// The aliases of the whole book; false after reporting.
bool ReadAliases(App& app, std::set<std::string>* used) {
  kx::Object pbcom = BookCommand(app, kx_pbc_lstper);
  kx::SetEnum(pbcom.get(), "pbsort", kx_pbs_alias);
  return ForEachEntry(app, std::move(pbcom), [&](kx_object* person) {
    used->insert(AliasKey(kx::TextOrEmpty(person, "palias")));
    return true;
  });
}

// Settles the rows that name an alias for the second time, unless they are to
// change the first.
void SettleRepeats(const std::string& on_duplicate, ImportFile* file,
                   ImportCount* count) {
  std::set<std::string> seen;
  if (on_duplicate == "update") return;
  for (ImportRow& row : file->rows) {
    if (!row.reason.empty()) continue;
    const std::string alias = kx::TextOrEmpty(row.person.get(), "palias");
    if (alias.empty() || seen.insert(AliasKey(alias)).second) continue;
    if (on_duplicate == "skip") {
      row.skipped = true;
      ++count->skipped;
    } else {
      row.reason = "the alias " + alias + " is in the file already";
    }
  }
}

// Reports the rejected rows and writes them to --rejects.
void ReportRejects(App& app, const ImportFile& file, ImportCount* count) {
  std::vector<std::string> heading = file.heading;
  heading.insert(heading.end(), {"row", "reason"});
  std::string text = CsvLine(heading);
  count->rejected = 0;
  for (size_t i = 0; i < file.rows.size(); ++i) {
    const ImportRow& row = file.rows[i];
    if (row.reason.empty()) continue;
    ++count->rejected;
    app.Fail(krt_refused, "row " + std::to_string(i + 1),
             row.reason + " (line " + std::to_string(row.line) + ")");
    std::vector<std::string> cells = row.cells;
    cells.resize(file.heading.size());
    cells.insert(cells.end(), {std::to_string(i + 1), row.reason});
    text += CsvLine(cells);
  }
  const char* path = app.line().Value("rejects");
  if (path == nullptr) return;
  if (Status s = WriteWhole(path, text); !s.ok()) app.Fail("--rejects", s);
}

void ReportImport(App& app, size_t rows, const ImportCount& count) {
  const std::string verb = app.dry_run() ? " fit, " : " added, ";
  std::string line = std::to_string(rows) +
                     " rows: " + std::to_string(count.added) + verb +
                     std::to_string(count.updated) + " updated, " +
                     std::to_string(count.skipped) + " skipped, " +
                     std::to_string(count.rejected) + " rejected";
  app.out().Done({{"type", JsonString("import")},
                  {"rows", std::to_string(rows)},
                  {"added", std::to_string(count.added)},
                  {"updated", std::to_string(count.updated)},
                  {"skipped", std::to_string(count.skipped)},
                  {"rejected", std::to_string(count.rejected)}},
                 line);
}

void ImportPersons(App& app, const std::string& text) {
  ImportFile file;
  if (!ReadImport(app, text, IsVcard(app, app.arg(0), text), &file)) return;
  MakePersons(&file);
  ImportCount count;
  const std::string on_duplicate = app.ValueOr("on-duplicate", "reject");
  // The whole book is asked only where an alias is to be made that nobody has.
  if (NeedsAliases(file)) {
    const std::string given = app.ValueOr("alias-from", "name");
    const char* from = FindPersonName(given);
    std::set<std::string> used;
    if (from == nullptr) {
      return app.Fail(krt_usage, "",
                      "--alias-from: unknown field \"" + given + "\"");
    }
    if (!app.dry_run() && !ReadAliases(app, &used)) return;
    MakeAliases(&file, from, &used);
  }
  // Before anything is sent: of rows sent side by side, either could be first.
  SettleRepeats(on_duplicate, &file, &count);
  if (app.dry_run()) {
    for (const ImportRow& row : file.rows) {
      count.added += row.reason.empty() && !row.skipped ? 1 : 0;
    }
  } else if (app.Connect()) {
    SendPersons(app, on_duplicate, &file, &count);
  } else {
    return;
  }
  ReportRejects(app, file, &count);
  ReportImport(app, file.rows.size(), count);
}

enum class Sent {
  kDone,
  kWasThere,
  kFailed,  // which has been reported
};

// Sends a command of the group import; a duplicate is as good as done.
Sent SendEntry(App& app, int pbcmd, const std::string& subject,
               kx::Object entry) {
  kx::Object pbcom = BookCommand(app, pbcmd);
  kx::SetChild(pbcom.get(), "objptr", std::move(entry));
  kx::Object cmd = app.link().Command("cmd-pbcmd", std::move(pbcom));
  kx::Object answer;
  Status s = app.link().Call(cmd.get(), nullptr, &answer);
  if (s.ok()) return Sent::kDone;
  if (answer != nullptr &&
      kx::Number(answer.get(), "result") == kx_err_duplicate) {
    return Sent::kWasThere;
  }
  app.Fail(subject, s);
  return Sent::kFailed;
}

// One row of a group file: the group if it is new, and the membership if it
// names a person.
void ImportGroupRow(App& app, const CsvRow& row, ImportCount* count) {
  const auto cell = [&](size_t i) {
    return i < row.cells.size() ? row.cells[i] : std::string();
  };
  const std::string where = "line " + std::to_string(row.line);
  kx::Object group = kx::Build("obj-group");
  kx::Object member = kx::Build("obj-member");
  if (!app.Set(where, group.get(), "galias", cell(0)) ||
      !app.Set(where, group.get(), "gdesc", cell(1)) ||
      !app.Set(where, member.get(), "galias", cell(0)) ||
      !app.Set(where, member.get(), "palias", cell(2))) {
    ++count->rejected;
    return;
  }
  if (app.dry_run()) {
    ++count->added;
    return;
  }
  // A row counts for its membership where it has one: the group is repeated in
  // the row of each of its members.
  Sent sent = SendEntry(app, kx_pbc_grpadd, where, std::move(group));
  if (sent != Sent::kFailed && !cell(2).empty()) {
    sent = SendEntry(app, kx_pbc_memadd, where, std::move(member));
  }
  ++(sent == Sent::kDone       ? count->added
     : sent == Sent::kWasThere ? count->skipped
                               : count->rejected);
}

void ImportGroups(App& app, const std::string& text) {
  std::vector<CsvRow> rows;
  if (Status s = ParseCsv(text, &rows); !s.ok()) return app.Fail("", s);
  if (rows.empty() || rows[0].cells != kGroupHeading) {
    return app.Fail(krt_bad_data, "", "the heading is not galias,gdesc,palias");
  }
  if (!app.Connect()) return;
  ImportCount count;
  for (size_t i = 1; i < rows.size(); ++i) {
    ImportGroupRow(app, rows[i], &count);
    // Not a row's fault any more: each further one would fail like it.
    if (app.worst() >= krt_unavailable) return;
  }
  ReportImport(app, rows.size() - 1, count);
}

// Groups with their members as CSV or JSON; false after reporting.
bool ExportGroups(App& app, bool json, std::string* text, int* count) {
  kx::ListBuilder groups;
  if (!ForEachEntry(app, BookCommand(app, kx_pbc_lstgrp), [&](kx_object* g) {
        return groups.Append(kx::Object(Kfx_Copy_Obj(g)));
      })) {
    return false;
  }
  *text = CsvLine(kGroupHeading);
  std::vector<std::string> elements;
  for (kx_object* group : kx::Elements(groups.head())) {
    const std::string alias = kx::TextOrEmpty(group, "galias");
    const std::string description = kx::TextOrEmpty(group, "gdesc");
    kx::Object pbcom = BookCommand(app, kx_pbc_lstmbg);
    kx::SetText(pbcom.get(), "pbkey", alias.c_str());
    // The group itself, so that one without members is not lost.
    *text += CsvLine({alias, description, ""});
    std::vector<std::string> members;
    if (!ForEachEntry(app, std::move(pbcom), [&](kx_object* person) {
          const std::string member = kx::TextOrEmpty(person, "palias");
          *text += CsvLine({alias, description, member});
          members.push_back(JsonString(member));
          return true;
        })) {
      return false;
    }
    elements.push_back(ToJson(group, {{"members", JsonArray(members)}}));
  }
  *count = groups.count();
  if (json) *text = JsonArray(elements) + "\n";
  return true;
}

std::string PersonLine(kx_object* person) {
  std::vector<std::string> cells;
  for (const char* field : PersonFields()) {
    cells.emplace_back(kx::TextOrEmpty(person, field));
  }
  return CsvLine(cells);
}

bool ExportPersons(App& app, const std::string& path, bool json,
                   std::string* text, int* count) {
  const bool vcard = IsVcard(app, path, "");
  const std::string version = app.ValueOr("vcard-version", "4.0");
  std::vector<std::string> elements;
  if (!vcard) {
    *text = CsvLine({PersonFields().begin(), PersonFields().end()});
  }
  kx::Object pbcom = BookCommand(app, kx_pbc_lstper);
  kx::SetEnum(pbcom.get(), "pbsort", kx_pbs_alias);
  if (!app.SetFromOption(pbcom.get(), "galias", "group")) return false;
  const bool all = ForEachEntry(app, std::move(pbcom), [&](kx_object* person) {
    ++*count;
    if (json) {
      elements.push_back(ToJson(person));
    } else {
      *text += vcard ? VcardOf(person, version) : PersonLine(person);
    }
    return true;
  });
  if (json) *text = JsonArray(elements) + "\n";
  return all;
}

}  // namespace

void RunPbImport(App& app) {
  std::string text;
  if (Status s = ReadWhole(app.arg(0), &text); !s.ok()) return app.Fail("", s);
  if (text.find_first_not_of(" \t\r\n") == text.npos) {
    return app.Fail(krt_no_input, "", app.arg(0) + ": is empty");
  }
  app.Has("groups") ? ImportGroups(app, text) : ImportPersons(app, text);
}

void RunPbExport(App& app) {
  const std::string path = app.args() > 0 ? app.arg(0) : "-";
  std::string text;
  int count = 0;
  // A file has its own format, whatever form the results have.
  const bool json = path == "-" && app.out().options().form == Form::kJson;
  if (!(app.Has("groups") ? ExportGroups(app, json, &text, &count)
                          : ExportPersons(app, path, json, &text, &count))) {
    return;
  }
  if (path == "-") {
    // Data, unless somebody looks at it.
    const bool shown = app.out().options().terminal;
    return app.out().Raw(shown ? Printable(text, "\r\n\t") : text);
  }
  if (Status s = WriteWhole(path, text); !s.ok()) return app.Fail("", s);
  const std::string what = app.Has("groups") ? " groups" : " persons";
  app.out().Done({{"type", JsonString("export")},
                  {"file", JsonString(path)},
                  {"count", std::to_string(count)}},
                 std::to_string(count) + what + " -> " + path);
}

}  // namespace client
