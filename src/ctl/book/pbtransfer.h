// The parts of import: from a file to persons, and from persons to the book.
#ifndef CTL_BOOK_PBTRANSFER_H_
#define CTL_BOOK_PBTRANSFER_H_

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ctl/app/app.h"

namespace client {

// One row of a file to import.
struct ImportRow {
  int line;                        // where it begins in the file
  std::vector<std::string> cells;  // as they stand there, for the rejects
  std::vector<std::pair<std::string, std::string>> values;  // name, text
  kx::Object person;
  std::string reason;  // why it was rejected, if it was
  bool skipped;        // not wanted
};

struct ImportFile {
  std::vector<std::string> heading;
  std::vector<ImportRow> rows;
};

// What became of the rows.
struct ImportCount {
  int added = 0;
  int updated = 0;
  int skipped = 0;
  int rejected = 0;
};

// Reads CSV or vCard text. False after reporting.
bool ReadImport(App& app, const std::string& text, bool vcard,
                ImportFile* file);
// Makes the persons; what does not fit is rejected.
void MakePersons(ImportFile* file);
// Whether a row needs an alias made.
bool NeedsAliases(const ImportFile& file);
// Gives aliases to the rows without, none of which is in `used`.
void MakeAliases(ImportFile* file, const std::string& from,
                 std::set<std::string>* used);

// Sends the persons that are not rejected, several at once, and says what to do
// with those whose alias is taken: "reject", "skip" or "update".
void SendPersons(App& app, const std::string& on_duplicate, ImportFile* file,
                 ImportCount* count);

}  // namespace client

#endif  // CTL_BOOK_PBTRANSFER_H_
