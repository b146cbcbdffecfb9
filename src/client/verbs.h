// The table of verbs and options. The parser, the help, the completions and the
// manual page all come from it.
#ifndef CLIENT_VERBS_H_
#define CLIENT_VERBS_H_

#include <climits>
#include <span>

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

std::span<const VerbRow> Verbs();
// The row of a verb, or null.
const VerbRow* FindVerb(const char* name);
// Options that every verb takes.
std::span<const OptionRow> GlobalOptions();

// The kinds of `list`: enum names without "lst-".
std::span<const char* const> ListKinds();

}  // namespace client

#endif  // CLIENT_VERBS_H_
