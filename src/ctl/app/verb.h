// What a verb of the command line is: a row of a table. The parser, the help,
// the completions and the manual page all come from the table.
#ifndef CTL_APP_VERB_H_
#define CTL_APP_VERB_H_

#include <climits>
#include <span>
#include <string>
#include <vector>

namespace client {

class App;

struct OptionRow {
  const char* name;     // without the dashes
  char letter;          // 0: none
  const char* value;    // what its value is called in the help; null: none
  const char* help;     // one line
  const char* choices;  // the values to choose from, by blanks; null: free
  bool repeats;
};

// What arguments are, for the completions.
enum class ArgKind {
  kNone,
  kFree,
  kFile,
  kListKind,
  kShell,
  kVerb,
};

constexpr int kAnyNumber = INT_MAX;

struct VerbRow {
  const char* name;  // one to three words
  const char* args;  // as the help shows them
  const char* help;  // one line
  int min_args;
  int max_args;
  ArgKind kind;
  std::span<const OptionRow> options;
  bool many;         // its results are a list, also when there is one
  bool passes_rest;  // everything from the first argument on is one
  void (*run)(App& app);
};

struct VerbTable {
  std::span<const VerbRow> verbs;
  std::span<const OptionRow> options;  // those that every verb takes

  // The row of a verb, or null.
  const VerbRow* Find(const std::string& name) const;
  // The next words of verbs' names after these first ones ("": none yet), in
  // table order: "list", "get" and so on after "fax".
  std::vector<std::string> NextWords(const std::string& words) const;
};

// Whether a verb's name is, or begins with, these words.
bool NameBegins(const char* name, const std::string& words);

}  // namespace client

#endif  // CTL_APP_VERB_H_
