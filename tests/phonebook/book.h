// A root directory with phone books in it, driven by commands alone.
#ifndef PHONEBOOK_BOOK_H_
#define PHONEBOOK_BOOK_H_

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kx/object.h"
#include "phonebook/pb.h"
#include "support/temp_dir.h"
#include "util/kutenv.h"

using Fields = std::vector<std::pair<std::string, std::string>>;

// "name=text" words as fields.
inline Fields Words(const std::string& text) {
  Fields fields;
  std::istringstream stream(text);
  for (std::string word; stream >> word;) {
    const size_t at = word.find('=');
    fields.emplace_back(word.substr(0, at), word.substr(at + 1));
  }
  return fields;
}

inline void SetFields(kx_object* obj, const Fields& fields) {
  for (const auto& [field, text] : fields) {
    EXPECT_EQ(kx::SetText(obj, field.c_str(), text.c_str()), 0)
        << field << " = " << text;
  }
}

// One client's conversation. The command object is the one that came back, as a
// client sends it: what a command does not set is what the last one left.
class Client {
 public:
  explicit Client(const char* name = "alice") : name_(name) { Reset(); }

  // A new command object: the user's book, for writing, by alias.
  void Reset() {
    com_ = kx::Build("obj-pbcom");
    Set(Words("pbtype=pbt-usr pbmode=pbm-write pbsort=pbs-alias"));
  }
  // Sends a command, with an object of these fields if there are any. The error
  // number, 0 for success.
  int Send(const std::string& command, const Fields& fields,
           const Fields& object = {}, std::string type = "") {
    Set({{"pbcmd", "pbc-" + command}});
    Set(fields);
    if (type.empty()) type = TypeOf(command);
    kx::Object obj = object.empty() ? nullptr : kx::Build(type.c_str());
    if (obj != nullptr) SetFields(obj.get(), object);
    kx::SetChild(com(), "objptr", std::move(obj));
    const int result = do_pbcmd(name_, com());
    EXPECT_EQ(result, pb_errno == 0 ? 0 : -1);
    for (const pb_book* book : {&pb_lcl, &pb_usr, &pb_sys}) {
      EXPECT_EQ(book->open, 0) << "left open by " << command;
    }
    return pb_errno;
  }
  // Carries on a conversation. A command a line: its name, its fields, and
  // behind "|" those of its object; behind "=>" what comes of it: the error
  // number, fields of the object that comes back ("palias=Bob") or of the
  // command object (".pbmax=2"), the aliases of a list ("[a b]"). Besides,
  //   new             begins with a new command object
  //   persons a b     adds persons of these aliases
  //   group g a b     adds a group and its members
  //   other COMMAND   is another client's, of the same user
  //   members g:a     is what is left of memberships, in the order of groups
  void Talk(const std::string& text) {
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
      SCOPED_TRACE(line);
      std::istringstream words(line);
      std::string first, alias, more;
      words >> first;
      if (first == "new") {
        Reset();
      } else if (first == "persons") {
        while (words >> alias) Say("peradd", "palias=" + alias);
      } else if (first == "group") {
        words >> alias;
        Say("grpadd", "galias=" + alias);
        while (words >> more)
          Say("memadd", "galias=" + alias + " palias=" + more);
      } else if (first == "other") {
        Client(name_).Speak(line.substr(line.find(' ') + 1));
      } else if (first == "members") {
        EXPECT_EQ(first + Client(name_).Memberships(), line);
      } else if (!first.empty()) {
        Speak(line);
      }
    }
  }
  void Set(const Fields& fields) { SetFields(com(), fields); }
  kx_object* com() const { return com_.get(); }
  std::string Get(const char* field) const {
    return kx::TextOrEmpty(com(), field);
  }
  // A field of the object that came back.
  std::string Result(const char* field) const {
    kx_object* result = kx::Child(com(), "objptr");
    return result != nullptr ? kx::TextOrEmpty(result, field) : "none";
  }
  // The aliases in the list that came back.
  std::string Listed() const {
    std::string all;
    for (kx_object* element : kx::Elements(kx::Child(com(), "objptr"))) {
      const bool group = Kfx_Is_Obj_Type(element, "obj-group") != 0;
      all += (all.empty() ? "" : " ") +
             std::string(kx::TextOrEmpty(element, group ? "galias" : "palias"));
    }
    return all;
  }

 private:
  static const char* TypeOf(const std::string& command) {
    return command.starts_with("per")   ? "obj-person"
           : command.starts_with("grp") ? "obj-group"
                                        : "obj-member";
  }
  void Say(const char* command, const std::string& object) {
    EXPECT_EQ(Send(command, {}, Words(object)), 0) << object;
  }
  void Speak(const std::string& line) {
    const size_t arrow = line.find("=>");
    const std::string said = line.substr(0, arrow);
    const size_t bar = std::min(said.find('|'), said.size());
    const size_t end = std::min(said.find(' '), bar);
    const int error =
        Send(said.substr(0, end), Words(said.substr(end, bar - end)),
             Words(bar < said.size() ? said.substr(bar + 1) : ""));
    const std::string due =
        arrow != line.npos ? line.substr(line.find_first_not_of("=> ", arrow))
                           : "0";
    EXPECT_EQ(error, std::atoi(due.c_str()));
    if (due[0] == '[') {
      EXPECT_EQ("[" + Listed() + "]", due);
      return;
    }
    for (const auto& [name, value] : Words(due)) {
      if (std::isdigit(static_cast<unsigned char>(name[0]))) continue;
      EXPECT_EQ(name[0] == '.' ? Get(name.c_str() + 1) : Result(name.c_str()),
                value)
          << name;
    }
  }
  std::string Memberships() {
    std::string all;
    for (const char* step = "pbc-first"; Send("memget", {{"rcmd", step}}) == 0;
         step = "pbc-next") {
      all += " " + Result("galias") + ":" + Result("palias");
    }
    return all;
  }

  const char* const name_;
  kx::Object com_;
};

class BookTest : public ::testing::Test {
 protected:
  BookTest() {
    setenv("KFAXDIR", root_.path().c_str(), 1);
    Kut_env_reset();
    client_.Talk("create");
  }

  TempDir root_;
  Client client_;
};

#endif  // PHONEBOOK_BOOK_H_
