// A root directory with phone books in it, driven by commands alone.
#ifndef PHONEBOOK_BOOK_H_
#define PHONEBOOK_BOOK_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
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

inline kx::Object Make(const char* type, const Fields& fields) {
  kx::Object obj = kx::Build(type);
  for (const auto& [field, text] : fields) {
    EXPECT_EQ(kx::SetText(obj.get(), field.c_str(), text.c_str()), 0)
        << field << " = " << text;
  }
  return obj;
}

inline kx::Object Person(const std::string& words) {
  return Make("obj-person", Words(words));
}
inline kx::Object Group(const std::string& words) {
  return Make("obj-group", Words(words));
}
inline kx::Object Member(const std::string& group, const std::string& person) {
  return Make("obj-member", {{"galias", group}, {"palias", person}});
}

// One client's conversation. The command object is the one that came back, as a
// client sends it: what a command does not set is what the last one left.
class Client {
 public:
  explicit Client(const char* name = "alice") : name_(name) { Reset(); }

  // A new command object: the user's book, for writing, by alias.
  void Reset() {
    com_ = Make("obj-pbcom",
                Words("pbtype=pbt-usr pbmode=pbm-write pbsort=pbs-alias"));
  }
  // Sends a command, given with its fields as words. The error number, 0 for
  // success.
  int Send(const std::string& words, kx::Object obj = nullptr) {
    const size_t end = words.find(' ');
    const std::string fields = end != words.npos ? words.substr(end) : "";
    return Send(words.substr(0, end), Words(fields), std::move(obj));
  }
  int Send(const std::string& command, const Fields& fields, kx::Object obj) {
    Set({{"pbcmd", "pbc-" + command}});
    Set(fields);
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
  // command object (".pbmax=2"), the aliases of a list ("[a b]"). A line "new"
  // begins with a new command object.
  void Talk(const std::string& text) {
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
      if (line == "new") Reset();
      if (line.empty() || line == "new") continue;
      SCOPED_TRACE(line);
      Speak(line);
    }
  }
  void Set(const std::string& words) { Set(Words(words)); }
  void Set(const Fields& fields) {
    for (const auto& [field, text] : fields) {
      EXPECT_EQ(kx::SetText(com(), field.c_str(), text.c_str()), 0)
          << field << " = " << text;
    }
  }
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
      if (!all.empty()) all += ' ';
      const bool group = Kfx_Is_Obj_Type(element, "obj-group") != 0;
      all += kx::TextOrEmpty(element, group ? "galias" : "palias");
    }
    return all;
  }

 private:
  void Speak(const std::string& line) {
    const size_t arrow = line.find("=>");
    const std::string said = line.substr(0, arrow);
    const size_t bar = said.find('|');
    const char* type = said.starts_with("per")   ? "obj-person"
                       : said.starts_with("grp") ? "obj-group"
                                                 : "obj-member";
    kx::Object obj;
    if (bar != said.npos) obj = Make(type, Words(said.substr(bar + 1)));
    const int error = Send(said.substr(0, bar), std::move(obj));
    const std::string due =
        arrow != line.npos ? line.substr(line.find_first_not_of("=> ", arrow))
                           : "0";
    EXPECT_EQ(error, std::atoi(due.c_str()));
    if (due[0] == '[') {
      EXPECT_EQ("[" + Listed() + "]", due);
      return;
    }
    for (const auto& [name, value] : Words(due)) {
      if (isdigit(name[0])) continue;
      EXPECT_EQ(name[0] == '.' ? Get(name.c_str() + 1) : Result(name.c_str()),
                value)
          << name;
    }
  }

  const char* const name_;
  kx::Object com_;
};

class BookTest : public ::testing::Test {
 protected:
  BookTest() {
    setenv("KFAXDIR", root_.path().c_str(), 1);
    Kut_env_reset();
    EXPECT_EQ(client_.Send("create"), 0);
  }
  void AddPersons(std::initializer_list<const char*> aliases) {
    for (const char* alias : aliases) {
      EXPECT_EQ(client_.Send("peradd", Person(std::string("palias=") + alias)),
                0);
    }
  }
  void AddGroup(const char* alias, std::initializer_list<const char*> members) {
    EXPECT_EQ(client_.Send("grpadd", Group(std::string("galias=") + alias)), 0);
    for (const char* member : members) {
      EXPECT_EQ(client_.Send("memadd", Member(alias, member)), 0);
    }
  }
  // The person aliases of all memberships of a group, "?" for persons that are
  // no more.
  std::string Memberships() {
    Client other;
    std::string all;
    for (const char* step = "memget rcmd=pbc-first"; other.Send(step) == 0;
         step = "memget rcmd=pbc-next") {
      all += other.Result("galias") + ":" + other.Result("palias") + " ";
    }
    return all;
  }

  TempDir root_;
  Client client_;
};

#endif  // PHONEBOOK_BOOK_H_
