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
  const char* name;               // without the dashes
  char letter = 0;                // 0: none
  const char* value = nullptr;    // what the help calls its value; null: none
  const char* help;               // one line
  const char* choices = nullptr;  // the values, by blanks; null: any
  bool repeats = false;  // each time adds a value; else the last counts
};

// What arguments are, for the completions.
enum class ArgKind {
  kFree,  // nothing that a shell could know
  kFile,
  kListKind,
  kShell,
  kVerb,
};

constexpr int kAnyNumber = INT_MAX;

struct ArgCount {
  int least = 0;
  int most = 0;
};

struct VerbRow {
  const char* name;       // one to three words
  const char* args = "";  // as the help shows them
  const char* help;       // one line
  ArgCount count = {};
  ArgKind kind = ArgKind::kFree;
  std::span<const OptionRow> options = {};  // beside those that all verbs take
  bool many = false;         // its results are a list, also when there is one
  bool passes_rest = false;  // everything from the first argument on is one
  void (*run)(App& app);
};

struct VerbTable {
  std::span<const VerbRow> verbs;
  std::span<const OptionRow> options;  // those that every verb takes

  // The row of a verb, or null.
  const VerbRow* Find(const std::string& name) const;
  // The options that may stand with a verb, those of all verbs first; null:
  // with any verb, one that several take as often.
  std::vector<const OptionRow*> Options(const VerbRow* verb = nullptr) const;
  // The next words of verbs' names after these first ones ("": none yet), in
  // table order: "list", "get" and so on after "fax".
  std::vector<std::string> NextWords(const std::string& words) const;
};

// Whether a verb's name is, or begins with, these words.
bool NameBegins(const char* name, const std::string& words);

}  // namespace client

#endif  // CTL_APP_VERB_H_
