#include "ctl/format/csv.h"

#include <algorithm>

namespace client {
namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

class Parser {
 public:
  explicit Parser(const std::string& text) : text_(text) {
    if (text_.starts_with(kByteOrderMark)) at_ = 3;
  }

  Status Parse(std::vector<CsvRow>* rows) {
    while (at_ < text_.size()) {
      CsvRow row{line_, {}};
      if (Status s = TakeRow(&row); !s.ok()) return s;
      const bool blank = row.cells.size() == 1 && row.cells[0].empty();
      if (!blank) rows->push_back(std::move(row));
    }
    return {};
  }

 private:
  Status TakeRow(CsvRow* row) {
    for (;;) {
      std::string cell;
      const bool quoted = at_ < text_.size() && text_[at_] == '"';
      Status s = quoted ? TakeQuoted(&cell) : TakePlain(&cell);
      if (!s.ok()) return s;
      row->cells.push_back(std::move(cell));
      if (at_ < text_.size() && text_[at_] == ',') {
        ++at_;
        continue;
      }
      return TakeEnd();
    }
  }

  Status TakePlain(std::string* cell) {
    const size_t end = std::min(text_.find_first_of(",\n", at_), text_.size());
    *cell = text_.substr(at_, end - at_);
    at_ = end;
    // A CR belongs to the line's end, and to the text anywhere else.
    const bool last = at_ == text_.size() || text_[at_] == '\n';
    if (last && !cell->empty() && cell->back() == '\r') cell->pop_back();
    if (cell->find('"') == cell->npos) return {};
    return {krt_bad_data, "line " + std::to_string(line_) +
                              ": a quote inside a field without quotes"};
  }

  Status TakeQuoted(std::string* cell) {
    const int first_line = line_;
    for (++at_; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (c == '\n') ++line_;
      if (c != '"') {
        *cell += c;
      } else if (at_ + 1 < text_.size() && text_[at_ + 1] == '"') {
        *cell += '"';
        ++at_;
      } else {
        ++at_;
        return {};
      }
    }
    return {krt_bad_data, "line " + std::to_string(first_line) +
                              ": a quote that is not closed"};
  }

  Status TakeEnd() {
    if (at_ < text_.size() && text_[at_] == '\r') ++at_;
    if (at_ == text_.size()) return {};
    if (text_[at_] != '\n') {
      return {krt_bad_data, "line " + std::to_string(line_) +
                                ": something after a closing quote"};
    }
    ++at_;
    ++line_;
    return {};
  }

  const std::string& text_;
  size_t at_ = 0;
  int line_ = 1;
};

std::string Cell(const std::string& text) {
  const bool plain =
      text.find_first_of(",\"\r\n") == text.npos &&
      text.compare(0, 3, kByteOrderMark) != 0 &&
      // Some programs take blanks at the ends away where there are no quotes.
      (text.empty() || (text.front() != ' ' && text.back() != ' '));
  if (plain) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

Status ParseCsv(const std::string& text, std::vector<CsvRow>* rows) {
  return Parser(text).Parse(rows);
}

std::string CsvLine(const std::vector<std::string>& cells) {
  std::string line;
  for (size_t i = 0; i < cells.size(); ++i) {
    line += (i > 0 ? "," : "") + Cell(cells[i]);
  }
  return line + "\r\n";
}

}  // namespace client
