// A root directory with phone books in it, driven by commands alone.
#ifndef PHONEBOOK_BOOK_H_
#define PHONEBOOK_BOOK_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "kx/object.h"
#include "phonebook/pb.h"
#include "support/temp_dir.h"
#include "util/kutenv.h"

using Fields = std::vector<std::pair<std::string, std::string>>;

inline kx::Object Make(const char* type, const Fields& fields) {
  kx::Object obj = kx::Build(type);
  for (const auto& [field, text] : fields) {
    EXPECT_EQ(kx::SetText(obj.get(), field.c_str(), text.c_str()), 0)
        << field << " = " << text;
  }
  return obj;
}

inline kx::Object Person(const Fields& fields) {
  return Make("obj-person", fields);
}
inline kx::Object Group(const Fields& fields) {
  return Make("obj-group", fields);
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
    com_ = Make("obj-pbcom", {{"pbtype", "pbt-usr"},
                              {"pbmode", "pbm-write"},
                              {"pbsort", "pbs-alias"}});
  }
  // Sends a command. The error number, 0 for success.
  int Send(const std::string& command, const Fields& fields = {},
           kx::Object obj = nullptr) {
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
  // That field of every element of the list that came back.
  std::string Listed(const char* field = "palias") const {
    std::string all;
    for (kx_object* element : kx::Elements(kx::Child(com(), "objptr"))) {
      if (!all.empty()) all += ' ';
      all += kx::TextOrEmpty(element, field);
    }
    return all;
  }

 private:
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
      EXPECT_EQ(client_.Send("peradd", {}, Person({{"palias", alias}})), 0);
    }
  }
  void AddGroup(const char* alias, std::initializer_list<const char*> members) {
    EXPECT_EQ(client_.Send("grpadd", {}, Group({{"galias", alias}})), 0);
    for (const char* member : members) {
      EXPECT_EQ(client_.Send("memadd", {}, Member(alias, member)), 0);
    }
  }
  // The person aliases of all memberships of a group, "?" for persons that are
  // no more.
  std::string Memberships() {
    Client other;
    std::string all;
    for (const char* step = "pbc-first";
         other.Send("memget", {{"rcmd", step}}) == 0; step = "pbc-next") {
      all += other.Result("galias") + ":" + other.Result("palias") + " ";
    }
    return all;
  }

  TempDir root_;
  Client client_;
};

#endif  // PHONEBOOK_BOOK_H_
