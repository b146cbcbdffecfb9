#include "ctl/book/pbtransfer.h"

#include <unistd.h>

#include <algorithm>
#include <deque>
#include <iostream>
#include <map>

#include "ctl/book/pbook.h"
#include "ctl/format/csv.h"
#include "ctl/format/format.h"
#include "ctl/format/person.h"
#include "ctl/format/vcard.h"
#include "link/diagnosis.h"
#include "util/kuttime.h"

namespace client {
namespace {

// Commands under way at once: the daemon carries some out side by side, and a
// few more lie ready for it.
constexpr size_t kWindow = 32;
constexpr long kProgressAfterMs = 1000;

// The names that --map gives to columns, by column in lower case.
bool ReadMaps(App& app, std::map<std::string, std::string>* maps) {
  for (const std::string& text : app.line().Values("map")) {
    std::string column;
    std::string field;
    if (!SplitPair(text, &column, &field)) {
      app.Fail(krt_usage, "", "--map: not COLUMN=FIELD: " + text);
      return false;
    }
    if (FindPersonName(field) == nullptr) {
      app.Fail(krt_usage, "", "--map: unknown field \"" + field + "\"");
      return false;
    }
    (*maps)[Lower(column)] = field;
  }
  return true;
}

void ReportUnknown(App& app, const std::string& column) {
  const char* nearest = Nearest(Lower(column), PersonNames());
  std::string text = "unknown column \"" + column + "\"";
  if (nearest != nullptr) text += std::string(", perhaps ") + nearest;
  text +=
      "; --map \"" + column + "=FIELD\" takes it, --ignore-unknown skips it";
  app.Fail(krt_bad_data, "", text);
}

// The field of each column, "" for one to be skipped. False after reporting.
bool ReadHeading(App& app, const std::vector<std::string>& heading,
                 std::vector<std::string>* fields) {
  std::map<std::string, std::string> maps;
  if (!ReadMaps(app, &maps)) return false;
  std::set<std::string> seen;
  for (const std::string& column : heading) {
    const auto mapped = maps.find(Lower(column));
    const char* name =
        FindPersonName(mapped != maps.end() ? mapped->second : column);
    if (name == nullptr && !app.Has("ignore-unknown")) {
      ReportUnknown(app, column);
      return false;
    }
    if (name != nullptr && !seen.insert(name).second) {
      app.Fail(krt_bad_data, "", std::string("two columns for ") + name);
      return false;
    }
    fields->push_back(name != nullptr ? name : "");
  }
  return true;
}

bool ReadCsv(App& app, const std::string& text, ImportFile* file) {
  std::vector<CsvRow> rows;
  if (Status s = ParseCsv(text, &rows); !s.ok()) {
    app.Fail("", s);
    return false;
  }
  std::vector<std::string> fields;
  if (rows.empty()) {
    app.Fail(krt_no_input, "", "no heading");
    return false;
  }
  file->heading = rows[0].cells;
  if (!ReadHeading(app, file->heading, &fields)) return false;
  for (size_t i = 1; i < rows.size(); ++i) {
    ImportRow row{rows[i].line, std::move(rows[i].cells), {}, nullptr, "",
                  false};
    if (row.cells.size() > fields.size()) {
      row.reason = "more cells than the heading has";
    }
    const size_t count = std::min(fields.size(), row.cells.size());
    for (size_t c = 0; c < count; ++c) {
      if (fields[c].empty() || row.cells[c].empty()) continue;
      row.values.emplace_back(fields[c], row.cells[c]);
    }
    file->rows.push_back(std::move(row));
  }
  return true;
}

bool ReadVcards(App& app, const std::string& text, ImportFile* file) {
  std::vector<Card> cards;
  if (Status s = ParseVcards(text, &cards); !s.ok()) {
    app.Fail("", s);
    return false;
  }
  for (const char* name : PersonNames()) file->heading.push_back(name);
  for (Card& card : cards) {
    ImportRow row{card.line, {}, std::move(card.values), nullptr, "", false};
    for (const std::string& name : file->heading) {
      std::string cell;
      for (const auto& [field, value] : row.values) {
        if (field == name) cell = value;
      }
      row.cells.push_back(cell);
    }
    file->rows.push_back(std::move(row));
  }
  return true;
}

// The letter that the parts of a phone number begin with, 0 for other names.
char PhoneLetter(const std::string& name) {
  for (const char* combined : {"fax", "voice", "pager", "cell"}) {
    if (name == combined) return combined[0];
  }
  return '\0';
}

// Whether a row says a combined name's parts one by one: they are exact, the
// combined text is not.
bool HasParts(const ImportRow& row, const std::string& name) {
  const char letter = PhoneLetter(name);
  for (const auto& [field, text] : row.values) {
    if (name == "name" && (field == "lname" || field == "fname")) return true;
    for (const char* part : {"cntry", "area", "local", "ext"}) {
      if (letter != '\0' && field == letter + std::string(part)) return true;
    }
  }
  return false;
}

void MakePerson(ImportRow* row) {
  row->person = kx::Build("obj-person");
  for (const auto& [name, text] : row->values) {
    if (HasParts(*row, name)) continue;
    Status s = SetPersonText(row->person.get(), name, text);
    if (!s.ok()) {
      row->reason = s.text;
      return;
    }
  }
  if (row->values.empty()) row->reason = "nothing in it";
}

// Tells on a terminal how far it is, once it takes long.
class Progress {
 public:
  explicit Progress(size_t total)
      : total_(total), shown_(isatty(STDERR_FILENO) != 0) {}
  ~Progress() {
    if (drawn_) std::cerr << "\r\033[K";
  }
  void Show(size_t done) {
    const long now = Kut_now_ms();
    if (!shown_ || now - start_ < kProgressAfterMs || now - last_ < 100) return;
    last_ = now;
    drawn_ = true;
    constexpr size_t kBar = 30;
    const size_t filled = total_ == 0 ? kBar : kBar * done / total_;
    std::cerr << "\r[" << std::string(filled, '#')
              << std::string(kBar - filled, ' ') << "] " << done << "/"
              << total_ << std::flush;
  }

 private:
  size_t total_;
  bool shown_;
  bool drawn_ = false;
  long start_ = Kut_now_ms();
  long last_ = 0;
};

// Keeps up to kWindow rows under way. Rows of one alias go one after the other,
// so that the file's order decides.
class Sender {
 public:
  Sender(App& app, const std::string& on_duplicate, ImportFile* file,
         ImportCount* count)
      : app_(app),
        on_duplicate_(on_duplicate),
        file_(file),
        count_(count),
        progress_(file->rows.size()) {}

  void Run() {
    for (ImportRow& row : file_->rows) {
      if (!row.reason.empty() || row.skipped) continue;
      queue_.push_back({&row, kx_pbc_peradd, ""});
    }
    const size_t total = queue_.size();
    for (;;) {
      // An interrupt stops the sending here. It ends the wait below as well,
      // which takes back what the daemon has not begun.
      if (app_.interrupted() || !Fill()) AbandonQueue();
      if (flying_.empty()) break;
      if (!Collect()) Abandon();
      progress_.Show(total - queue_.size() - flying_.size());
    }
  }

 private:
  struct Job {
    ImportRow* row;
    int pbcmd;
    std::string name;
  };

  static std::string Key(const Job& job) {
    return AliasKey(kx::TextOrEmpty(job.row->person.get(), "palias"));
  }

  bool Fill() {
    while (flying_.size() < kWindow && !queue_.empty()) {
      // The one before it decides whether this one is a duplicate.
      if (busy_.count(Key(queue_.front())) != 0) return true;
      Job job = queue_.front();
      if (!Send(&job)) return false;
      queue_.pop_front();
      busy_.insert(Key(job));
      flying_.push_back(job);
    }
    return true;
  }

  bool Send(Job* job) {
    kx::Object pbcom = BookCommand(app_, job->pbcmd);
    // A copy: an update may have to send the person once more.
    kx::SetChild(pbcom.get(), "objptr",
                 kx::Object(Kfx_Copy_Obj(job->row->person.get())));
    kx::Object cmd = app_.link().Command("cmd-pbcmd", std::move(pbcom));
    Status s = app_.link().Name(cmd.get(), &job->name);
    if (s.ok()) s = app_.link().Send(cmd.get(), job->name);
    if (!s.ok()) app_.Fail("", s);
    return s.ok();
  }

  bool Collect() {
    std::vector<std::string> names;
    for (const Job& job : flying_) names.push_back(job.name);
    size_t which = names.size();
    kx::Object answer;
    Status s = app_.link().WaitAny(names, nullptr, &which, &answer, &unknown_);
    // Nobody's answer: the wait was given up, for all of them.
    if (which == names.size()) {
      app_.Fail("", s);
      return false;
    }
    Job job = flying_[which];
    flying_.erase(flying_.begin() + static_cast<long>(which));
    busy_.erase(Key(job));
    s.ok() ? Judge(job, answer.get()) : Reject(job, s.text);
    return true;
  }

  void Judge(Job job, kx_object* answer) {
    const int result = kx::Number(answer, "result");
    if (result == 0) {
      ++(job.pbcmd == kx_pbc_peradd ? count_->added : count_->updated);
    } else if (result == kx_err_duplicate && on_duplicate_ == "skip") {
      ++count_->skipped;
    } else if (result == kx_err_duplicate && on_duplicate_ == "update") {
      // In front, before the file's later rows of the same alias.
      job.pbcmd = kx_pbc_perupd;
      queue_.push_front(job);
    } else {
      Reject(job, Refusal(answer).text);
    }
  }

  static void Reject(const Job& job, const std::string& reason) {
    job.row->reason = reason;
  }

  // What is under way is still waited for.
  void AbandonQueue() {
    for (const Job& job : queue_) Reject(job, "not sent");
    queue_.clear();
  }

  void Abandon() {
    for (const Job& job : flying_) {
      const bool unknown = std::find(unknown_.begin(), unknown_.end(),
                                     job.name) != unknown_.end();
      Reject(job, unknown ? "outcome unknown, later: krtctl collect " + job.name
                          : "not executed");
    }
    flying_.clear();
    AbandonQueue();
  }

  App& app_;
  const std::string on_duplicate_;
  ImportFile* file_;
  ImportCount* count_;
  Progress progress_;
  std::deque<Job> queue_;
  std::vector<Job> flying_;
  std::set<std::string> busy_;  // aliases under way
  std::vector<std::string> unknown_;
};

}  // namespace

bool ReadImport(App& app, const std::string& text, bool vcard,
                ImportFile* file) {
  return vcard ? ReadVcards(app, text, file) : ReadCsv(app, text, file);
}

void MakePersons(ImportFile* file) {
  for (ImportRow& row : file->rows) {
    if (row.reason.empty()) MakePerson(&row);
  }
}

bool NeedsAliases(const ImportFile& file) {
  return std::any_of(file.rows.begin(), file.rows.end(),
                     [](const ImportRow& row) {
                       return row.reason.empty() &&
                              kx::Text(row.person.get(), "palias") == nullptr;
                     });
}

void MakeAliases(ImportFile* file, const std::string& from,
                 std::set<std::string>* used) {
  for (const ImportRow& row : file->rows) {
    used->insert(AliasKey(kx::TextOrEmpty(row.person.get(), "palias")));
  }
  for (ImportRow& row : file->rows) {
    kx_object* person = row.person.get();
    if (!row.reason.empty() || kx::Text(person, "palias") != nullptr) continue;
    const std::string text = PersonText(person, from);
    MakeAlias(person, text.empty() ? kx::TextOrEmpty(person, "company") : text,
              used);
  }
}

void SendPersons(App& app, const std::string& on_duplicate, ImportFile* file,
                 ImportCount* count) {
  Sender(app, on_duplicate, file, count).Run();
}

}  // namespace client
