// Ranges, groups, orders and pages of random books against a list in memory
// that is walked from its first person to its last.
#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "book.h"

namespace {

constexpr const char* kSorts[] = {"pbs-unsorted", "pbs-alias", "pbs-lname",
                                  "pbs-fname", "pbs-company"};
constexpr const char* kSortFields[] = {"", "palias", "lname", "fname",
                                       "company"};

std::string Upper(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

struct Entry {
  std::map<std::string, std::string> fields;
  std::string palias() const { return fields.at("palias"); }
  std::string Key(int sort) const {
    return sort == 0 ? "" : Upper(fields.at(kSortFields[sort]));
  }
};

class Model : public BookTest {
 protected:
  // Few letters, so that texts collide, begin each other and differ in case; a
  // byte above 127 comes after all others.
  std::string Text(size_t max) {
    std::string text;
    const size_t length = rng_() % (max + 1);
    while (text.size() < length) text += "abAB \xc4z"[rng_() % 7];
    return text;
  }
  std::string Pick(std::initializer_list<const char*> texts) {
    return *(texts.begin() + rng_() % texts.size());
  }

  void AddRandomPerson() {
    Entry entry;
    entry.fields = {{"palias", Text(6)},
                    {"lname", Text(4)},
                    {"fname", Text(40).substr(0, 31)},
                    {"company", Text(2)}};
    if (entry.palias().empty()) return;
    Fields fields(entry.fields.begin(), entry.fields.end());
    const bool is_new =
        std::none_of(book_.begin(), book_.end(), [&](const Entry& other) {
          return Upper(other.palias()) == Upper(entry.palias());
        });
    EXPECT_EQ(client_.Send("peradd", {}, fields), is_new ? 0 : 33);
    if (is_new) book_.push_back(entry);
  }
  void AddRandomMember() {
    if (book_.empty()) return;
    const std::string alias = book_[rng_() % book_.size()].palias();
    const bool is_new = members_.insert(Upper(alias)).second;
    EXPECT_EQ(client_.Send("memadd", {}, {{"galias", "g"}, {"palias", alias}}),
              is_new ? 0 : 33);
  }
  void DeleteRandomPerson() {
    if (book_.empty()) return;
    const size_t i = rng_() % book_.size();
    EXPECT_EQ(client_.Send("perdel", {{"pbkey", book_[i].palias()}}), 0);
    members_.erase(Upper(book_[i].palias()));
    book_.erase(book_.begin() + static_cast<long>(i));
  }

  // The book in an order; as it was added among equals.
  std::vector<Entry> Sorted(int sort) const {
    std::vector<Entry> sorted = book_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [sort](const Entry& a, const Entry& b) {
                       const int order = a.Key(sort).compare(b.Key(sort));
                       if (order != 0 || sort != 4) return order < 0;
                       return a.Key(2) < b.Key(2);
                     });
    return sorted;
  }
  // The aliases of a range, of the group's members if there is one.
  std::vector<std::string> Select(int sort, const std::string& group,
                                  const std::string& from = "",
                                  const std::string& to = "") const {
    std::vector<std::string> aliases;
    for (const Entry& entry : Sorted(sort)) {
      const std::string key = entry.Key(sort);
      if ((from.empty() || key >= Upper(from)) &&
          (to.empty() || key < Upper(to)) &&
          (group.empty() || members_.count(Upper(entry.palias())) != 0)) {
        aliases.push_back(entry.palias());
      }
    }
    return aliases;
  }
  static std::string Join(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts)
      all += (all.empty() ? "" : " ") + text;
    return all;
  }

  void CheckRange() {
    const int sort = static_cast<int>(rng_() % 5);
    // Without an order there is no range of keys.
    const std::string from = sort > 0 ? Text(5) : "";
    const std::string to = sort > 0 ? Text(5) : "";
    const std::string group = Pick({"", "g", "G"});
    const size_t offset = rng_() % 4, max = rng_() % 4;
    const Fields command = {{"pbsort", kSorts[sort]},
                            {"pbbeg", from},
                            {"pbend", to},
                            {"galias", group},
                            {"pboffset", std::to_string(offset)},
                            {"pbmax", std::to_string(max)}};
    SCOPED_TRACE(testing::PrintToString(command));
    auto due = Select(sort, group, from, to);
    const std::string count = std::to_string(due.size());
    due.erase(due.begin(),
              due.begin() + static_cast<long>(std::min(offset, due.size())));
    if (max > 0 && due.size() > max) due.resize(max);
    client_.Reset();
    EXPECT_EQ(client_.Send("lstprl", command), 0);
    EXPECT_EQ(client_.Listed(), Join(due));
    if (from.empty() && to.empty()) return;
    EXPECT_EQ(client_.Send("cntper", {{"pbkey", group}}), 0);
    EXPECT_EQ(client_.Get("pbmax"), count);
  }

  // Pages through the book in both directions.
  void CheckPages() {
    const int sort = static_cast<int>(rng_() % 5);
    const std::string group = Pick({"", "g"});
    const bool back = rng_() % 2 != 0;
    const Fields command = {{"pbsort", kSorts[sort]},
                            {"rcmd", back ? "pbc-prev" : "pbc-next"},
                            {"galias", group},
                            {"pbmax", std::to_string(1 + rng_() % 5)}};
    SCOPED_TRACE(testing::PrintToString(command));
    auto due = Select(sort, group);
    if (back) std::reverse(due.begin(), due.end());
    std::vector<std::string> pages;
    client_.Reset();
    while (client_.Send("lstper", command) == 0 && client_.Listed() != "") {
      pages.push_back(client_.Listed());
    }
    EXPECT_EQ(Join(pages), Join(due));
  }

  std::mt19937 rng_{20240229};
  std::vector<Entry> book_;
  std::set<std::string> members_;
};

TEST_F(Model, RandomBooks) {
  client_.Talk("group g");
  for (int round = 0; round < 25 && !HasFailure(); ++round) {
    for (int i = 0; i < 6; ++i) AddRandomPerson();
    for (int i = 0; i < 3; ++i) AddRandomMember();
    for (int i = 0; i < 2; ++i) DeleteRandomPerson();
    for (int i = 0; i < 20; ++i) CheckRange();
    for (int i = 0; i < 4; ++i) CheckPages();
  }
}

}  // namespace
