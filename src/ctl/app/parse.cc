#include "ctl/app/parse.h"

#include <algorithm>
#include <cstring>

namespace client {
namespace {

// Edits from one text to the other: a character more, less, other, or two
// neighbours exchanged.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<size_t>> d(a.size() + 1,
                                     std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) d[i][0] = i;
  for (size_t j = 0; j <= b.size(); ++j) d[0][j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
      d[i][j] = std::min(
          {d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + change});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
      }
    }
  }
  return d[a.size()][b.size()];
}

std::vector<const char*> Pointers(const std::vector<std::string>& words) {
  std::vector<const char*> pointers;
  pointers.reserve(words.size());
  for (const std::string& word : words) pointers.push_back(word.c_str());
  return pointers;
}

class Parser {
 public:
  Parser(const VerbTable& table, int argc, const char* const* argv,
         CommandLine* line)
      : table_(table), words_(argv + 1, argv + argc), line_(line) {}

  Status Parse() {
    while (at_ < words_.size()) {
      const std::string word = words_[at_++];
      Status s;
      if (ended_ || word.size() < 2 || word[0] != '-') {
        s = TakeWord(word);
      } else if (word == "--") {
        ended_ = true;
      } else if (word[1] == '-') {
        s = TakeLong(word.substr(2));
      } else {
        s = TakeLetters(word.substr(1));
      }
      if (!s.ok()) return s;
    }
    return Check();
  }

 private:
  Status TakeWord(const std::string& word) {
    // A verb's name is up to three words: they are taken until they name one.
    if (line_->verb == nullptr) return TakeVerbWord(word);
    line_->args.push_back(word);
    // What follows are another program's options.
    if (line_->verb->passes_rest) ended_ = true;
    return {};
  }

  Status TakeVerbWord(const std::string& word) {
    const std::string words = verb_.empty() ? word : verb_ + " " + word;
    if (table_.NextWords(words).empty() && table_.Find(words) == nullptr) {
      const std::vector<std::string> known = table_.NextWords(verb_);
      const std::string what = verb_.empty() ? "verb" : verb_ + " verb";
      return {krt_usage, "unknown " + what + " \"" + word + "\"" +
                             DidYouMean(word, Pointers(known))};
    }
    verb_ = words;
    line_->verb = table_.Find(verb_);
    return {};
  }

  // The options that may stand here: before the verb is known, any verb's.
  std::vector<const OptionRow*> Allowed() const {
    return table_.Options(line_->verb);
  }

  Status TakeLong(const std::string& text) {
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    for (const OptionRow* row : Allowed()) {
      if (name != row->name) continue;
      if (equals == text.npos) return Store(*row, nullptr);
      const std::string value = text.substr(equals + 1);
      return Store(*row, &value);
    }
    std::vector<const char*> names;
    for (const OptionRow* row : Allowed()) names.push_back(row->name);
    return {krt_usage, "unknown option --" + name + DidYouMean(name, names)};
  }

  Status TakeLetters(const std::string& letters) {
    for (size_t i = 0; i < letters.size(); ++i) {
      const OptionRow* found = nullptr;
      for (const OptionRow* row : Allowed()) {
        if (found == nullptr && row->letter == letters[i]) found = row;
      }
      if (found == nullptr) {
        return {krt_usage, std::string("unknown option -") + letters[i]};
      }
      if (found->value == nullptr) {
        if (Status s = Store(*found, nullptr); !s.ok()) return s;
        continue;
      }
      // The rest of the word is the value: -uUSER.
      const std::string value = letters.substr(i + 1);
      return Store(*found, value.empty() ? nullptr : &value);
    }
    return {};
  }

  Status Store(const OptionRow& row, const std::string* value) {
    const std::string name = std::string("--") + row.name;
    if (row.value == nullptr) {
      if (value != nullptr) return {krt_usage, name + " takes no value"};
      line_->options.emplace_back(row.name, "");
      return {};
    }
    if (value == nullptr) {
      if (at_ == words_.size()) {
        return {krt_usage, name + " needs a value: " + row.value};
      }
      value = &words_[at_++];
    }
    if (!IsChoice(row, *value)) {
      return {krt_usage, name + ": not one of: " + row.choices};
    }
    line_->options.emplace_back(row.name, *value);
    return {};
  }

  static bool IsChoice(const OptionRow& row, const std::string& value) {
    if (row.choices == nullptr) return true;
    const std::string all = std::string(" ") + row.choices + " ";
    return value.find(' ') == value.npos &&
           all.find(" " + value + " ") != all.npos;
  }

  // Only when all is read: an option of the verb may stand before it.
  Status Check() const {
    if (line_->Has("help") || line_->Has("version")) return {};
    if (line_->verb == nullptr) return MissingVerb();
    const VerbRow& verb = *line_->verb;
    const std::string name = verb.name;
    for (const auto& [option, value] : line_->options) {
      if (!Takes(verb, option)) {
        std::string text = name;
        return {krt_usage, text.append(": does not take --").append(option)};
      }
    }
    const int count = static_cast<int>(line_->args.size());
    if (count >= verb.count.least && count <= verb.count.most) return {};
    if (count < verb.count.least) {
      return {krt_usage, name + ": needs " + verb.args};
    }
    return {krt_usage, name + ": unexpected argument \"" +
                           line_->args[static_cast<size_t>(verb.count.most)] +
                           "\""};
  }

  Status MissingVerb() const {
    if (verb_.empty()) return {krt_usage, "no verb given; see: krtctl help"};
    std::string text = verb_ + ": one of";
    for (const std::string& word : table_.NextWords(verb_)) text += " " + word;
    return {krt_usage, text};
  }

  bool Takes(const VerbRow& verb, const std::string& option) const {
    const std::vector<const OptionRow*> rows = table_.Options(&verb);
    return std::any_of(rows.begin(), rows.end(), [&](const OptionRow* row) {
      return option == row->name;
    });
  }

  const VerbTable& table_;
  std::vector<std::string> words_;
  CommandLine* line_;
  size_t at_ = 0;
  bool ended_ = false;  // what follows are no options
  std::string verb_;
};

}  // namespace

bool CommandLine::Has(const char* option) const {
  return Value(option) != nullptr;
}

const char* CommandLine::Value(const char* option) const {
  const char* value = nullptr;
  for (const auto& [name, text] : options) {
    if (name == option) value = text.c_str();
  }
  return value;
}

std::vector<std::string> CommandLine::Values(const char* option) const {
  std::vector<std::string> values;
  for (const auto& [name, text] : options) {
    if (name == option) values.push_back(text);
  }
  return values;
}

Status ParseCommandLine(const VerbTable& table, int argc,
                        const char* const* argv, CommandLine* line) {
  return Parser(table, argc, argv, line).Parse();
}

std::string DidYouMean(const std::string& word,
                       const std::vector<const char*>& names) {
  const char* nearest = Nearest(word, names);
  return nearest == nullptr
             ? ""
             : std::string("; did you mean \"") + nearest + "\"?";
}

const char* Nearest(const std::string& word,
                    const std::vector<const char*>& names) {
  const char* nearest = nullptr;
  // A short word is near to everything.
  size_t best = word.size() < 4 ? 2 : 3;
  for (const char* name : names) {
    const std::string candidate = name;
    const size_t apart = std::max(word.size(), candidate.size()) -
                         std::min(word.size(), candidate.size());
    // The lengths alone put them so far apart, and a word may be very long.
    size_t distance = apart < best ? Distance(word, candidate) : best;
    if (word.size() >= 3 && candidate.starts_with(word)) {
      distance = 1;
    }
    if (distance < best) {
      best = distance;
      nearest = name;
    }
  }
  return nearest;
}

}  // namespace client
