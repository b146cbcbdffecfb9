#include "simulator/options.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "cm/cmpaths.h"

namespace sim {
namespace {

struct VerbRow {
  Verb verb;
  const char* name;
  size_t arguments;  // after the verb; the first is the root, a second a user
  const char* usage;
  const char* help;
};

constexpr VerbRow kVerbs[] = {
    {.verb = Verb::kInit,
     .name = "init",
     .arguments = 1,
     .usage = "ROOT",
     .help = "lay out a fax server's root"},
    {.verb = Verb::kRun,
     .name = "run",
     .arguments = 1,
     .usage = "ROOT",
     .help = "play the fax server until told to stop"},
    {.verb = Verb::kReceive,
     .name = "receive",
     .arguments = 2,
     .usage = "ROOT USER",
     .help = "put a received fax into a user's queue"},
};

constexpr double kMaxSeconds = 24 * 3600;
constexpr int kMaxCount = 999;
constexpr size_t kMaxUserName = 15;  // what the field "clientid" holds

// 1 to kMaxCount.
bool ReadCount(const char* text, int* count) {
  char* end;
  const long value = strtol(text, &end, 10);
  if (end == text || *end != '\0' || value < 1 || value > kMaxCount) {
    return false;
  }
  *count = static_cast<int>(value);
  return true;
}

bool ReadSeconds(const char* text, long* ms) {
  char* end;
  const double value = strtod(text, &end);
  if (end == text || *end != '\0' || !(value >= 0 && value <= kMaxSeconds)) {
    return false;
  }
  *ms = std::lround(value * 1000);
  return true;
}

bool AddUser(Options& options, const char* name) {
  if (!cm_is_plain_name(name) || strlen(name) > kMaxUserName) return false;
  options.users.emplace_back(name);
  return true;
}

struct OptionRow {
  const char* name;
  char letter;                  // of the short form
  const char* value = nullptr;  // its name in the help; null: takes none
  const char* wants = "";       // what the value has to be
  const char* verbs = "";       // that it is for; "" for all
  const char* help;
  bool (*apply)(Options& options, const char* value);
};

constexpr char kSeconds[] = "a number of seconds, at most a day";
constexpr char kCount[] = "a number from 1 to 999";

// Help and version end the search for a verb.
template <Verb verb>
bool Ask(Options& options, const char*) {
  options.verb = verb;
  return true;
}

constexpr OptionRow kOptions[] = {
    {.name = "--user",
     .letter = 'u',
     .value = "NAME",
     .wants = "a user name of at most 15 characters",
     .verbs = "init",
     .help = "a user of the fax server; the caller without any",
     .apply = AddUser},
    {.name = "--outcome",
     .letter = 'o',
     .value = "RULE",
     .wants = "[DIGITS=]OUTCOME[,OUTCOME]...",
     .verbs = "run",
     .help = "how attempts at numbers ending in DIGITS end, one after the "
             "other",
     .apply = [](Options& o,
                 const char* v) { return o.course.outcomes.Add(v); }},
    {.name = "--attempts",
     .letter = 'a',
     .value = "N",
     .wants = kCount,
     .verbs = "run",
     .help = "give a request up after N attempts; its own number by default",
     .apply =
         [](Options& o, const char* v) {
           return ReadCount(v, &o.course.most_attempts);
         }},
    {.name = "--delay",
     .letter = 'd',
     .value = "S",
     .wants = kSeconds,
     .verbs = "run",
     .help = "an attempt takes S seconds (2)",
     .apply =
         [](Options& o, const char* v) {
           return ReadSeconds(v, &o.course.sending_ms);
         }},
    {.name = "--retry",
     .letter = 'r',
     .value = "S",
     .wants = kSeconds,
     .verbs = "run",
     .help = "S seconds between two attempts (3)",
     .apply = [](Options& o,
                 const char* v) { return ReadSeconds(v, &o.course.pause_ms); }},
    {.name = "--pages",
     .letter = 'p',
     .value = "N",
     .wants = kCount,
     .verbs = "run receive",
     .help = "every fax has N pages; by default as many as its files",
     .apply = [](Options& o, const char* v) { return ReadCount(v, &o.pages); }},
    {.name = "--spool",
     .letter = 's',
     .value = "DIR",
     .wants = "a directory",
     .verbs = "run",
     .help = "the directory that the daemon watches (ROOT/krtnet/filspool)",
     .apply =
         [](Options& o, const char* v) {
           o.spool = v;
           return *v != '\0';
         }},
    {.name = "--exit-when-idle",
     .letter = 'e',
     .verbs = "run",
     .help = "stop when the last of at least one request is over",
     .apply = [](Options& o, const char*) { return o.exit_when_idle = true; }},
    {.name = "--quiet",
     .letter = 'q',
     .help = "print faults only",
     .apply = [](Options& o, const char*) { return o.quiet = true; }},
    {.name = "--help",
     .letter = 'h',
     .help = "print this text",
     .apply = Ask<Verb::kHelp>},
    {.name = "--version",
     .letter = 'V',
     .help = "print the version",
     .apply = Ask<Verb::kVersion>},
};

// The row of an argument such as "--delay", "--delay=2" or "-d"; `value` is set
// to what stands behind "=".
const OptionRow* FindOption(const char* argument, const char** value) {
  const char* equals = strchr(argument, '=');
  const size_t length = equals != nullptr
                            ? static_cast<size_t>(equals - argument)
                            : strlen(argument);
  const std::string_view name(argument, length);
  const auto row = std::find_if(
      std::begin(kOptions), std::end(kOptions), [&](const OptionRow& option) {
        return name == option.name ||
               (name.size() == 2 && name[1] == option.letter);
      });
  *value = equals != nullptr ? equals + 1 : nullptr;
  return row != std::end(kOptions) ? row : nullptr;
}

const VerbRow* FindVerb(std::string_view name) {
  const auto row =
      std::find_if(std::begin(kVerbs), std::end(kVerbs),
                   [&](const VerbRow& verb) { return name == verb.name; });
  return row != std::end(kVerbs) ? row : nullptr;
}

bool Serves(const OptionRow& option, const VerbRow& verb) {
  return *option.verbs == '\0' ||
         std::string_view(option.verbs).find(verb.name) != std::string::npos;
}

class Parser {
 public:
  Parser(int argc, const char* const* argv, Options* options)
      : rest_(argv + 1, argv + argc), options_(*options) {}

  // What is wrong; empty when nothing is.
  std::string Parse() {
    bool only_arguments = false;
    for (; at_ < rest_.size(); ++at_) {
      const char* argument = rest_[at_];
      if (only_arguments || argument[0] != '-' || argument[1] == '\0') {
        arguments_.emplace_back(argument);
      } else if (strcmp(argument, "--") == 0) {
        only_arguments = true;
      } else if (std::string fault = TakeOption(argument); !fault.empty()) {
        return fault;
      }
    }
    // Help and version are answered whatever else is there, also without a
    // verb.
    if (options_.verb != Verb::kNone) return "";
    return TakeArguments();
  }

 private:
  std::string TakeOption(const char* argument) {
    const char* value;
    const OptionRow* row = FindOption(argument, &value);
    const std::string name(argument, strcspn(argument, "="));
    if (row == nullptr) return "unknown option " + name;
    used_.push_back(row);
    if (row->value == nullptr) {
      if (value != nullptr) return name + " takes no value";
    } else if (value == nullptr) {
      if (++at_ >= rest_.size()) return name + " wants " + row->wants;
      value = rest_[at_];
    }
    if (row->apply(options_, value)) return "";
    return name + " wants " + row->wants + ", not \"" + value + "\"";
  }

  std::string TakeArguments() {
    if (arguments_.empty()) return "what shall it do?";
    const VerbRow* verb = FindVerb(arguments_[0]);
    if (verb == nullptr) return "unknown verb " + arguments_[0];
    // Only now: an option may stand before its verb.
    for (const OptionRow* option : used_) {
      if (!Serves(*option, *verb)) {
        return std::string(verb->name) + " has no option " + option->name;
      }
    }
    const size_t given = arguments_.size() - 1;
    if (given != verb->arguments || arguments_[1].empty()) {
      return std::string("the arguments of ") + verb->name + " are " +
             verb->usage;
    }
    options_.verb = verb->verb;
    options_.root = arguments_[1];
    if (given > 1 && !AddUser(options_, arguments_[2].c_str())) {
      return "\"" + arguments_[2] + "\" is no user name";
    }
    return "";
  }

  std::vector<const char*> rest_;
  size_t at_ = 0;
  std::vector<std::string> arguments_;
  std::vector<const OptionRow*> used_;
  Options& options_;
};

std::string Padded(std::string text, size_t width) {
  text.resize(std::max(width, text.size() + 2), ' ');
  return text;
}

constexpr size_t kHelpColumn = 28;

}  // namespace

bool ParseOptions(int argc, const char* const* argv, Options* options,
                  std::string* fault) {
  *fault = Parser(argc, argv, options).Parse();
  return fault->empty();
}

std::string HelpText() {
  std::string text =
      "krtsim plays the fax server that krtcmd works for: its scheduler, its\n"
      "queueing side and its session daemons.\n\n"
      "usage: krtsim VERB ARGUMENTS [OPTIONS]\n\n";
  for (const VerbRow& verb : kVerbs) {
    const std::string usage = std::string("  ") + verb.name + " " + verb.usage;
    text += Padded(usage, kHelpColumn) + verb.help + "\n";
  }
  text += "\nOptions:\n";
  for (const OptionRow& option : kOptions) {
    std::string usage = std::string("  -") + option.letter + ", " + option.name;
    if (option.value != nullptr) usage += std::string(" ") + option.value;
    text += Padded(usage, kHelpColumn) + option.help;
    if (*option.verbs != '\0') text += std::string(" [") + option.verbs + "]";
    text += "\n";
  }
  return text +
         "\nA rule is [DIGITS=]OUTCOME[,OUTCOME]...; the outcomes are\n" +
         OutcomeWords() +
         ".\n--outcome 99=busy,ok: numbers ending in 99 are busy once.\n";
}

}  // namespace sim
