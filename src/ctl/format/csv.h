// Comma-separated values, RFC 4180: fields in double quotes may hold commas,
// doubled quotes and line breaks. UTF-8, with or without a byte order mark.
#ifndef CTL_FORMAT_CSV_H_
#define CTL_FORMAT_CSV_H_

#include <string>
#include <vector>

#include "link/status.h"

namespace client {

struct CsvRow {
  int line;  // where it begins, from 1
  std::vector<std::string> cells;
};

// Reads all rows; empty lines are none. Lines may end in CR LF or LF.
// krt_bad_data names the line where a quote is wrong.
Status ParseCsv(const std::string& text, std::vector<CsvRow>* rows);

// One row with its CR LF; cells are quoted where they must be.
std::string CsvLine(const std::vector<std::string>& cells);

}  // namespace client

#endif  // CTL_FORMAT_CSV_H_
