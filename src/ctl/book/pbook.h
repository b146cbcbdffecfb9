// The phone book as the client reaches it: one command for each step.
//
// - Lists come in pages: the server remembers nothing between commands, so each
//   next page is asked for with the object that the last one came in.
#ifndef CTL_BOOK_PBOOK_H_
#define CTL_BOOK_PBOOK_H_

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "ctl/app/app.h"

namespace client {

// How many entries one command may bring.
constexpr int kPage = 200;

// A new "obj-pbcom" for the book that --book names, opened for what the
// sub-command does.
kx::Object BookCommand(App& app, int pbcmd);
// Sends it: the "obj-pbcom" of the answer, or null.
kx::Object CallBook(App& app, const std::string& subject, kx::Object pbcom);
// The same for what must be known first, --dry-run or not.
kx::Object QueryBook(App& app, const std::string& subject, kx::Object pbcom);
// A person as stored, or null after reporting; where `absent` is given and
// there simply is no such person, it is set instead.
kx::Object FetchPerson(App& app, const std::string& alias,
                       bool* absent = nullptr);

// Calls `each` for every entry of a list command, page by page; false after a
// failure, which has been reported, and when `each` returns false.
bool ForEachEntry(App& app, kx::Object pbcom,
                  const std::function<bool(kx_object* entry)>& each);

// Shows the first `max` entries of a list command (null: none) as a table, or
// sends it once with --dry-run.
void ShowEntries(App& app, kx::Object pbcom, long max = LONG_MAX);

// Adds an "obj-dest" for the person of that alias, or for each member of the
// group of that alias: of the book that --book names, or else the user's and
// then the system's. False after reporting; a member without a number is only
// reported.
bool LookUpDestinations(App& app, const std::string& alias,
                        kx::ListBuilder* list);

}  // namespace client

#endif  // CTL_BOOK_PBOOK_H_
