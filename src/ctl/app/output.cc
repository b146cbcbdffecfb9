#include "ctl/app/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cm/cmprior.h"
#include "cm/cmresult.h"
#include "ctl/format/format.h"
#include "kx/kxobj.h"
#include "link/exchange.h"

namespace client {
namespace {

// The columns of a table of objects of one type.
struct View {
  const char* type;
  std::vector<const char*> fields;
  std::vector<const char*> titles;
};

const View* FindView(const char* type) {
  static const View kViews[] = {
      {"obj-resource", {"rname", "rdesc"}, {"NAME", "DESCRIPTION"}},
      {"obj-freq",
       {"seqno", "clientid", "tofnum", "queue", "prilevel", "attempt",
        "sendtime", "rresult"},
       {"SEQNO", "USER", "NUMBER", "QUEUE", "PRIORITY", "TRIES", "SEND AT",
        "STATE"}},
      {"obj-status",
       {"seqno", "tofnum", "rresult", "aresult", "attempt", "npages",
        "submittime", "etime", "subject"},
       {"SEQNO", "NUMBER", "STATE", "LAST TRY", "TRIES", "PAGES", "SUBMITTED",
        "ENDED", "SUBJECT"}},
      {"obj-faxinfo",
       {"filename", "npages", "rcvtime", "fstatus", "tsi"},
       {"NAME", "PAGES", "RECEIVED", "STATE", "FROM"}},
      {"obj-tinfo", {"filename", "msgtime"}, {"NAME", "TIME"}},
      {"obj-servmsg", {"servcode", "text"}, {"CODE", "TEXT"}},
      {"obj-route", {"toid"}, {"USER"}},
      {"obj-cvrtag",
       {"tagname", "tagtype", "maxlen", "fonttype", "fontname", "tagdesc"},
       {"NAME", "KIND", "LENGTH", "FONT", "FONT NAME", "DESCRIPTION"}},
      {"obj-person",
       {"palias", "lname", "fname", "company", "fcntry", "farea", "flocal",
        "email"},
       {"ALIAS", "LAST NAME", "FIRST NAME", "COMPANY", "FAX", "", "",
        "E-MAIL"}},
      {"obj-group", {"galias", "gdesc"}, {"ALIAS", "DESCRIPTION"}},
      {"obj-member", {"galias", "palias"}, {"GROUP", "ALIAS"}},
      {"obj-queue",
       {"qname", "qtype", "accepting", "asince", "areason"},
       {"QUEUE", "KIND", "ACCEPTING", "SINCE", "REASON"}},
      {"obj-device",
       {"destname", "devstate", "enabled", "recving", "esince", "ereason"},
       {"DEVICE", "STATE", "ENABLED", "RECEIVING", "SINCE", "REASON"}},
  };
  for (const View& view : kViews) {
    if (strcmp(view.type, type) == 0) return &view;
  }
  return nullptr;
}

// Fields that hold a code of a table of the system's.
std::string CodeInWords(const char* field, const char* text) {
  const int code = Kfx_Str_To_Long(text);
  if (strcmp(field, "rresult") == 0 || strcmp(field, "aresult") == 0) {
    const char* words = cm_result_to_desc(code);
    return strcmp(words, "?") == 0 ? text : words;
  }
  if (strcmp(field, "prilevel") == 0) {
    const char* words = cm_prior_desc(code);
    return strcmp(words, "?") == 0 ? text : words;
  }
  return text;
}

// A field as people read it: enums without their prefix, times, results and
// priorities in words. Empty when it is unset.
std::string HumanValue(kx_object* obj, const char* field, bool terminal) {
  const int type = Kfx_Field_Type(obj, field);
  if (type == -1 || type == kx_typ_data || type == kx_typ_obj ||
      type == kx_typ_list) {
    return "";
  }
  const char* text = kx::Text(obj, field);
  if (text == nullptr) return "";
  switch (type) {
    case kx_typ_enum: {
      const char* dash = strchr(text, '-');
      return dash != nullptr ? dash + 1 : text;
    }
    case kx_typ_bool:
      return strcmp(text, "true") == 0 ? "yes" : "no";
    case kx_typ_time: {
      const time_t t = kx::Time(obj, field);
      return terminal ? LocalTime(t) : FullTime(t);
    }
    case kx_typ_word:
    case kx_typ_long:
      return CodeInWords(field, text);
    default:
      return Printable(text);
  }
}

// What a person has as one number is four fields.
std::string FaxNumber(kx_object* person) {
  std::string number;
  for (const char* field : {"fcntry", "farea", "flocal"}) {
    const std::string part = kx::TextOrEmpty(person, field);
    if (!number.empty() && !part.empty()) number += '-';
    number += part;
  }
  const std::string extension = kx::TextOrEmpty(person, "fext");
  return extension.empty() ? number : number + " x" + extension;
}

Cells RowOf(kx_object* obj, const View& view, bool terminal) {
  Cells cells;
  for (size_t i = 0; i < view.fields.size(); ++i) {
    if (*view.titles[i] == '\0') continue;
    cells.push_back(strcmp(view.titles[i], "FAX") == 0
                        ? FaxNumber(obj)
                        : HumanValue(obj, view.fields[i], terminal));
  }
  return cells;
}

// Gives the columns their widths: as wide as needed, and the widest ones
// narrower until the line fits. The first column names the thing: it stays
// whole.
std::vector<size_t> Widths(const std::vector<Cells>& rows, size_t limit) {
  std::vector<size_t> widths;
  for (const Cells& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], Width(row[i]));
    }
  }
  constexpr size_t kGap = 2;
  constexpr size_t kNarrowest = 8;
  size_t total = widths.empty() ? 0 : kGap * (widths.size() - 1);
  for (const size_t width : widths) total += width;
  while (total > limit) {
    const auto widest = std::max_element(widths.begin() + 1, widths.end());
    if (widest == widths.end() || *widest <= kNarrowest) break;
    --*widest;
    --total;
  }
  return widths;
}

bool IsEmptyColumn(const std::vector<Cells>& rows, size_t column) {
  return std::all_of(rows.begin(), rows.end(), [&](const Cells& row) {
    return column >= row.size() || row[column].empty();
  });
}

void DropEmptyColumns(Cells* heading, std::vector<Cells>* rows) {
  for (size_t i = heading->size(); i-- > 1;) {
    if (!IsEmptyColumn(*rows, i)) continue;
    heading->erase(heading->begin() + static_cast<long>(i));
    for (Cells& row : *rows) row.erase(row.begin() + static_cast<long>(i));
  }
}

std::string AlignedLine(const Cells& cells, const std::vector<size_t>& widths) {
  std::string line;
  for (size_t i = 0; i < cells.size(); ++i) {
    const std::string text = Shorten(cells[i], widths[i]);
    line += text;
    if (i + 1 < cells.size()) line.append(widths[i] - Width(text) + 2, ' ');
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string TabbedLine(const Cells& cells) {
  std::string line;
  for (size_t i = 0; i < cells.size(); ++i)
    line += (i > 0 ? "\t" : "") + cells[i];
  return line;
}

void AppendDetails(kx_object* obj, const std::string& indent, bool terminal,
                   std::string* out);

void AppendDetail(kx_object* obj, const kx_fielddef& field,
                  const std::string& indent, bool terminal, std::string* out) {
  constexpr size_t kNameWidth = 12;
  std::string head = indent + field.name;
  if (field.type == kx_typ_obj || field.type == kx_typ_list) {
    kx_object* child = kx::Child(obj, field.name);
    if (child == nullptr) return;
    *out += head + "\n";
    AppendDetails(child, indent + "  ", terminal, out);
    return;
  }
  const std::string value = HumanValue(obj, field.name, terminal);
  if (value.empty()) return;
  if (head.size() < kNameWidth) head.resize(kNameWidth, ' ');
  *out += head + " " + value + "\n";
}

void AppendDetails(kx_object* obj, const std::string& indent, bool terminal,
                   std::string* out) {
  if (Kfx_Is_Obj_Type(obj, "obj-list") == 1) {
    bool first = true;
    for (kx_object* element : kx::Elements(obj)) {
      if (!first) *out += "\n";
      first = false;
      AppendDetails(element, indent, terminal, out);
    }
    return;
  }
  const kx_objdef* type = kx_obj_info(obj);
  if (type == nullptr) return;
  for (const kx_fielddef* f = type->fields; f->name != nullptr; ++f) {
    AppendDetail(obj, *f, indent, terminal, out);
  }
}

}  // namespace

void Output::Json(const std::string& value) {
  // Each value goes out as it comes, so that the array opens with the first and
  // is closed by Finish.
  if (options_.many) Raw(count_ == 0 ? "[" : ",\n ");
  Raw(value);
  if (!options_.many) Raw("\n");
  ++count_;
}

void Output::Result(kx_object* obj, const std::string& line,
                    const std::vector<JsonMember>& more) {
  if (options_.form == Form::kJson) {
    Json(ToJson(obj, more));
  } else if (options_.form == Form::kText) {
    Text(obj);
  } else if (!line.empty()) {
    Raw(Printable(line) + "\n");
  }
}

void Output::Result(const std::vector<JsonMember>& members,
                    const std::string& line, const std::string& head) {
  if (options_.form == Form::kJson) {
    Json(JsonObject(members));
  } else if (!line.empty()) {
    Raw(head + Printable(line) + "\n");
  }
}

void Output::Details(kx_object* obj) {
  if (!human()) return Result(obj, "");
  std::string text;
  AppendDetails(obj, "", options_.terminal, &text);
  Raw(text);
}

void Output::Table(kx_object* list) {
  const View* view = nullptr;
  Cells heading;
  std::vector<Cells> rows;
  for (kx_object* element : kx::Elements(list)) {
    if (!human()) {
      Result(element, "");
      continue;
    }
    if (view == nullptr) view = FindView(Kfx_Object_Type(element));
    // Of a type that has no table of its own.
    if (view == nullptr) return Details(list);
    rows.push_back(RowOf(element, *view, options_.terminal));
  }
  if (view == nullptr) return;
  for (const char* title : view->titles) {
    if (*title != '\0') heading.push_back(title);
  }
  // People need no empty columns, programs need them all.
  if (options_.terminal) DropEmptyColumns(&heading, &rows);
  Table(heading, rows);
}

void Output::Table(const Cells& heading, std::vector<Cells> rows) {
  if (!human()) return;
  for (Cells& row : rows) {
    for (std::string& cell : row) cell = Printable(cell);
  }
  if (!options_.terminal) {
    if (!options_.quiet) Raw(TabbedLine(heading) + "\n");
    for (const Cells& row : rows) Raw(TabbedLine(row) + "\n");
    return;
  }
  if (!options_.quiet) rows.insert(rows.begin(), heading);
  const std::vector<size_t> widths = Widths(rows, options_.width);
  for (size_t i = 0; i < rows.size(); ++i) {
    const std::string line = AlignedLine(rows[i], widths);
    const bool head = i == 0 && !options_.quiet;
    Raw(Painted(line, head ? Paint::kBold : Paint::kNone) + "\n");
  }
}

void Output::Line(const std::string& line, const std::string& head) {
  if (human()) Raw(head + Printable(line, "\t") + "\n");
}

// With its newlines, which end the pairs: a value has none.
void Output::Text(kx_object* obj) { Raw(Printable(TextForm(obj), "\n")); }

void Output::Raw(const std::string& text) {
  // The first error is kept: later ones follow from it.
  const bool good = fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (!good && error_ == 0) error_ = errno;
  written_ = true;
}

int Output::Flush() {
  if (fflush(stdout) != 0 && error_ == 0) error_ = errno;
  return error_;
}

int Output::Finish() {
  if (options_.form == Form::kJson && options_.many) {
    // A dry run prints command files instead of results.
    if (count_ > 0 || !written_) Raw(count_ > 0 ? "]\n" : "[]\n");
  }
  return Flush();
}

std::string Output::Painted(const std::string& text, Paint paint) const {
  if (!options_.color || paint == Paint::kNone) return text;
  constexpr const char* kCodes[] = {"", "\033[1m", "\033[32m", "\033[33m",
                                    "\033[31m"};
  return kCodes[static_cast<int>(paint)] + text + "\033[0m";
}

}  // namespace client
