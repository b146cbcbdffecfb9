// completion bash, zsh, fish: scripts made of the table of verbs.
#include <algorithm>
#include <iterator>
#include <set>

#include "ctl/app/app.h"
#include "ctl/help.h"
#include "ctl/verbs.h"
#include "ctl/verbs/actions.h"

namespace client {
namespace {

std::string Bash();
std::string Zsh();
std::string Fish();

constexpr struct {
  const char* name;
  std::string (*script)();
} kShells[] = {{"bash", Bash}, {"zsh", Zsh}, {"fish", Fish}};

// All proper beginnings of verbs' names, the empty one included.
std::set<std::string> Beginnings() {
  std::set<std::string> beginnings = {""};
  for (const VerbRow& row : Verbs().verbs) {
    const std::string name = row.name;
    for (size_t at = name.find(' '); at != name.npos;
         at = name.find(' ', at + 1)) {
      beginnings.insert(name.substr(0, at));
    }
  }
  return beginnings;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string OptionWords(std::span<const OptionRow> rows) {
  std::vector<std::string> words;
  for (const OptionRow& row : rows) {
    words.push_back(std::string("--") + row.name);
    if (row.letter != 0) words.push_back(std::string("-") + row.letter);
  }
  return Joined(words);
}

// The words of a kind of argument, or "" for those the shell knows itself.
std::string ArgWords(ArgKind kind) {
  std::vector<std::string> words;
  if (kind == ArgKind::kListKind) {
    for (const char* name : ListKinds()) words.push_back(name);
  } else if (kind == ArgKind::kShell) {
    for (const auto& shell : kShells) words.push_back(shell.name);
  } else if (kind == ArgKind::kVerb) {
    words = Verbs().NextWords("");
  }
  return Joined(words);
}

// The options with a value, as patterns of a case statement.
std::string ValuePatterns(bool with_choices) {
  std::set<std::string> patterns;
  for (const OptionRow* row : Verbs().Options()) {
    if (row->value == nullptr || (row->choices != nullptr) != with_choices) {
      continue;
    }
    patterns.insert(std::string("--") + row->name);
    if (row->letter != 0) patterns.insert(std::string("-") + row->letter);
  }
  std::string text;
  for (const std::string& p : patterns) text += (text.empty() ? "" : "|") + p;
  return text;
}

// Lines of a case statement, one for each option with choices.
std::string ChoiceCases() {
  std::set<std::string> lines;
  for (const OptionRow* row : Verbs().Options()) {
    if (row->choices == nullptr) continue;
    lines.insert(std::string("    --") + row->name + ") words=\"" +
                 row->choices + "\" ;;\n");
  }
  std::string text;
  for (const std::string& line : lines) text += line;
  return text;
}

// The shell functions that both bash and zsh use: `verb` from the words typed,
// and `words` to offer.
std::string SharedFunctions() {
  std::string text =
      "_krtctl_words() {  # previous word, current word, words before\n"
      "  local previous=\"$1\" current=\"$2\" verb=\"\" skip=0 word\n"
      "  shift 2\n  words=\"\"\n  files=0\n"
      "  case \"$previous\" in\n" +
      ChoiceCases() + "    " + ValuePatterns(false) +
      ") files=1 ;;\n  esac\n"
      "  if [ -n \"$words\" ] || [ $files = 1 ]; then return; fi\n"
      "  for word in \"$@\"; do\n"
      "    if [ $skip = 1 ]; then skip=0; continue; fi\n"
      "    case \"$word\" in\n      " +
      ValuePatterns(false) + "|" + ValuePatterns(true) +
      ") skip=1; continue ;;\n      -*) continue ;;\n    esac\n"
      "    case \"$verb\" in\n      ";
  // The words typed so far become the verb only while they begin one's name, so
  // that arguments are not taken for its words.
  std::string beginnings = "''";
  for (const std::string& words : Beginnings()) {
    if (!words.empty()) beginnings += "|'" + words + "'";
  }
  text += beginnings +
          ") verb=\"${verb:+$verb }$word\" ;;\n    esac\n  done\n"
          "  case \"$current\" in -*)\n    words=\"" +
          OptionWords(Verbs().options) + "\"\n    case \"$verb\" in\n";
  for (const VerbRow& row : Verbs().verbs) {
    if (row.options.empty()) continue;
    text += std::string("      '") + row.name + "') words=\"$words " +
            OptionWords(row.options) + "\" ;;\n";
  }
  text += "    esac\n    return ;;\n  esac\n  case \"$verb\" in\n";
  for (const std::string& words : Beginnings()) {
    text += "    '" + words + "') words=\"" + Joined(Verbs().NextWords(words)) +
            "\" ;;\n";
  }
  for (const VerbRow& row : Verbs().verbs) {
    const std::string words = ArgWords(row.kind);
    if (!words.empty()) {
      text +=
          std::string("    '") + row.name + "') words=\"" + words + "\" ;;\n";
    } else if (row.kind == ArgKind::kFile) {
      text += std::string("    '") + row.name + "') files=1 ;;\n";
    }
  }
  return text + "  esac\n}\n";
}

std::string Bash() {
  return "# bash completion for krtctl\n" + SharedFunctions() +
         "_krtctl() {\n"
         "  local words files current=\"${COMP_WORDS[COMP_CWORD]}\"\n"
         "  _krtctl_words \"${COMP_WORDS[COMP_CWORD-1]}\" \"$current\" "
         "\"${COMP_WORDS[@]:1:COMP_CWORD-1}\"\n"
         "  COMPREPLY=()\n"
         "  if [ $files = 1 ]; then\n"
         "    compopt -o filenames 2>/dev/null\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "  else\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- "
         "\"$current\")\n"
         "  fi\n}\n"
         "complete -F _krtctl krtctl\n";
}

// An array of zsh's is called `words` as well: what it holds is saved before
// the shared function's result of that name.
std::string Zsh() {
  return "#compdef krtctl\n" + SharedFunctions() +
         "_krtctl() {\n"
         "  local files\n"
         "  local typed=(\"${(@)words[2,CURRENT-1]}\")\n"
         "  local previous=\"${words[CURRENT-1]}\" "
         "current=\"${words[CURRENT]}\"\n"
         "  local words\n"
         "  _krtctl_words \"$previous\" \"$current\" \"${typed[@]}\"\n"
         "  if [ $files = 1 ]; then _files; else compadd -- ${=words}; fi\n"
         "}\n"
         "if [ \"$funcstack[1]\" = _krtctl ]; then _krtctl \"$@\"; else "
         "compdef _krtctl krtctl; fi\n";
}

std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') out += '\\';
    out += c;
  }
  return out + "'";
}

std::string FishOption(const OptionRow& row, const std::string& condition) {
  std::string line = "complete -c krtctl" + condition + " -l " + row.name;
  if (row.letter != 0) line += std::string(" -s ") + row.letter;
  if (row.choices != nullptr) {
    line += " -x -a " + Quoted(row.choices);
  } else if (row.value != nullptr) {
    line += " -r";
  }
  return line + " -d " + Quoted(row.help) + "\n";
}

std::string FishCondition(const std::string& verb) {
  std::string condition;
  for (size_t at = 0; at <= verb.size();) {
    const size_t end = std::min(verb.find(' ', at), verb.size());
    condition += (condition.empty() ? "" : "; and ") +
                 ("__fish_seen_subcommand_from " + verb.substr(at, end - at));
    at = end + 1;
  }
  return condition;
}

std::string Fish() {
  std::string text = "# fish completion for krtctl\ncomplete -c krtctl -f\n";
  for (const OptionRow& row : Verbs().options) text += FishOption(row, "");
  for (const std::string& words : Beginnings()) {
    std::string condition =
        words.empty()
            ? "not __fish_seen_subcommand_from " + Joined(Verbs().NextWords(""))
            : FishCondition(words) + "; and not __fish_seen_subcommand_from " +
                  Joined(Verbs().NextWords(words));
    text += "complete -c krtctl -n " + Quoted(condition) + " -a " +
            Quoted(Joined(Verbs().NextWords(words))) + "\n";
  }
  for (const VerbRow& row : Verbs().verbs) {
    const std::string condition = " -n " + Quoted(FishCondition(row.name));
    for (const OptionRow& option : row.options) {
      text += FishOption(option, condition);
    }
    const std::string words = ArgWords(row.kind);
    if (!words.empty()) {
      text += "complete -c krtctl" + condition + " -a " + Quoted(words) + "\n";
    } else if (row.kind == ArgKind::kFile) {
      text += "complete -c krtctl" + condition + " -F\n";
    }
  }
  return text;
}

}  // namespace

void RunCompletion(App& app) {
  const auto shell =
      std::find_if(std::begin(kShells), std::end(kShells),
                   [&](const auto& row) { return app.arg(0) == row.name; });
  if (shell == std::end(kShells)) {
    return app.Fail(krt_usage, "",
                    "unknown shell \"" + app.arg(0) +
                        "\"; one of: " + ArgWords(ArgKind::kShell));
  }
  const std::string script = shell->script();
  if (app.out().options().form == Form::kJson) {
    return app.out().Result({{"type", JsonString("completion")},
                             {"shell", JsonString(app.arg(0))},
                             {"script", JsonString(script)}},
                            "");
  }
  app.out().Raw(script);
}

}  // namespace client
