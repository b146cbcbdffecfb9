// help, and --help with a verb
#include "ctl/help.h"

#include <cstring>

#include "ctl/app/app.h"
#include "ctl/verbs.h"

namespace client {
namespace {

constexpr size_t kColumn = 30;

constexpr char kExitCodes[] =
    "Exit status:\n"
    "  0    done\n"
    "  1    refused, or nothing matched\n"
    "  64   wrong use of this program\n"
    "  65   a value that does not fit its field, or data that is malformed\n"
    "  66   an input file that is missing or empty\n"
    "  67   no such fax user\n"
    "  69   daemon, scheduler or queueing side not running\n"
    "  70   an error in this system\n"
    "  71, 73, 74  the system refused; a file could not be made; reading or\n"
    "       writing failed\n"
    "  75   no answer in time\n"
    "  77   permission denied\n"
    "  78   no usable root directory\n"
    "  130, 143  interrupted, terminated\n"
    "The worst of several.\n";

std::string Columns(const std::string& left, const std::string& right) {
  std::string line = "  " + left;
  if (line.size() + 2 > kColumn) {
    line += "\n" + std::string(kColumn, ' ');
  } else {
    line.resize(kColumn, ' ');
  }
  return line + right + "\n";
}

std::string OptionText(const OptionRow& row) {
  std::string text =
      row.letter != 0 ? std::string("-") + row.letter + ", " : "    ";
  text += std::string("--") + row.name;
  if (row.value != nullptr) text += std::string(" ") + row.value;
  return Columns(text, row.help);
}

std::string OptionsText(const char* title, std::span<const OptionRow> rows) {
  std::string text = rows.empty() ? "" : std::string("\n") + title + ":\n";
  for (const OptionRow& row : rows) text += OptionText(row);
  return text;
}

std::string VerbLine(const VerbRow& row) {
  std::string left = row.name;
  if (*row.args != '\0') left += std::string(" ") + row.args;
  return Columns(left, row.help);
}

std::string GeneralHelp() {
  std::string text =
      "usage: krtctl [options] VERB [arguments]\n"
      "The command line client of the fax server's command daemon.\n\nVerbs:\n";
  for (const VerbRow& row : Verbs().verbs) text += VerbLine(row);
  text += OptionsText("Options, before or after the verb", Verbs().options);
  return text + "\n" + kExitCodes;
}

std::string VerbHelp(const VerbRow& row) {
  std::string text = std::string("usage: krtctl ") + row.name;
  if (!row.options.empty()) text += " [options]";
  if (*row.args != '\0') text += std::string(" ") + row.args;
  text += std::string("\n") + row.help + "\n";
  text += OptionsText("Options", row.options);
  return text + OptionsText("Options of all verbs", Verbs().options);
}

std::string JsonOption(const OptionRow& row) {
  std::vector<JsonMember> members = {{"name", JsonString(row.name)}};
  if (row.letter != 0) {
    members.emplace_back("letter", JsonString(std::string(1, row.letter)));
  }
  if (row.value != nullptr)
    members.emplace_back("value", JsonString(row.value));
  if (row.choices != nullptr) {
    members.emplace_back("choices", JsonString(row.choices));
  }
  members.emplace_back("repeats", JsonBool(row.repeats));
  members.emplace_back("help", JsonString(row.help));
  return JsonObject(members);
}

std::string JsonOptions(std::span<const OptionRow> rows) {
  std::vector<std::string> elements;
  for (const OptionRow& row : rows) elements.push_back(JsonOption(row));
  return JsonArray(elements);
}

std::string JoinedArgs(const App& app) {
  std::string words;
  for (size_t i = 0; i < app.args(); ++i) {
    words += (i > 0 ? " " : "") + app.arg(i);
  }
  return words;
}

// The rows that a verb's name, or its first words, mean; none: all.
std::vector<const VerbRow*> Meant(const std::string& words) {
  std::vector<const VerbRow*> rows;
  for (const VerbRow& row : Verbs().verbs) {
    if (NameBegins(row.name, words)) rows.push_back(&row);
  }
  return rows;
}

void ShowJson(App& app, const std::vector<const VerbRow*>& rows) {
  for (const VerbRow* row : rows) {
    app.out().Result({{"type", JsonString("verb")},
                      {"name", JsonString(row->name)},
                      {"arguments", JsonString(row->args)},
                      {"help", JsonString(row->help)},
                      {"options", JsonOptions(row->options)}},
                     "");
  }
  app.out().Result({{"type", JsonString("options")},
                    {"options", JsonOptions(Verbs().options)}},
                   "");
}

}  // namespace

void RunHelp(App& app) {
  const VerbRow* verb = app.line().verb;
  const bool asked = verb != nullptr && strcmp(verb->name, "help") == 0;
  const std::string words = asked             ? JoinedArgs(app)
                            : verb != nullptr ? verb->name
                                              : "";
  const std::vector<const VerbRow*> rows = Meant(words);
  if (rows.empty()) {
    std::vector<const char*> names;
    for (const VerbRow& row : Verbs().verbs) names.push_back(row.name);
    return app.Fail(
        krt_usage, "",
        "unknown verb \"" + words + "\"" + DidYouMean(words, names));
  }
  if (app.out().options().form == Form::kJson) return ShowJson(app, rows);
  if (words.empty()) return app.out().Raw(GeneralHelp());
  if (rows.size() == 1) return app.out().Raw(VerbHelp(*rows[0]));
  for (const VerbRow* row : rows) app.out().Raw(VerbLine(*row));
}

}  // namespace client
