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
    EXPECT_EQ(client_.Send("peradd", {}, Make("obj-person", fields)),
              is_new ? 0 : 33);
    if (is_new) book_.push_back(entry);
  }
  void AddRandomMember() {
    if (book_.empty()) return;
    const std::string alias = book_[rng_() % book_.size()].palias();
    const bool is_new = members_.insert(Upper(alias)).second;
    EXPECT_EQ(client_.Send("memadd", Member("g", alias)), is_new ? 0 : 33);
  }
  void DeleteRandomPerson() {
    if (book_.empty()) return;
    const size_t i = rng_() % book_.size();
    EXPECT_EQ(client_.Send("perdel", {{"pbkey", book_[i].palias()}}, nullptr),
              0);
    members_.erase(Upper(book_[i].palias()));
    book_.erase(book_.begin() + static_cast<long>(i));
  }

  static std::string Key(const Entry& entry, int sort) {
    return sort == 0 ? "" : Upper(entry.fields.at(kSortFields[sort]));
  }
  // The book in an order; as it was added among equals.
  std::vector<Entry> Sorted(int sort) const {
    std::vector<Entry> sorted = book_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [sort](const Entry& a, const Entry& b) {
                       const int order = Key(a, sort).compare(Key(b, sort));
                       if (order != 0 || sort != 4) return order < 0;
                       return Key(a, 2) < Key(b, 2);
                     });
    return sorted;
  }
  bool IsIn(const Entry& entry, const std::string& group) const {
    return group.empty() || members_.count(Upper(entry.palias())) != 0;
  }

  int Count(int sort, const std::string& from, const std::string& to,
            const std::string& group) const {
    int count = 0;
    for (const Entry& entry : Sorted(sort)) {
      if (!from.empty() && Key(entry, sort) < Upper(from)) continue;
      if (!to.empty() && Key(entry, sort) >= Upper(to)) break;
      count += IsIn(entry, group);
    }
    return count;
  }
  std::string Range(int sort, const std::string& from, const std::string& to,
                    const std::string& group, int offset, int max) const {
    std::string listed;
    int held = 0;
    for (const Entry& entry : Sorted(sort)) {
      if (!from.empty() && Key(entry, sort) < Upper(from)) continue;
      if ((max > 0 && held == max) ||
          (!from.empty() && !to.empty() && Upper(from) > Upper(to))) {
        break;
      }
      if (!IsIn(entry, group) || offset-- > 0) continue;
      if (!to.empty() && Key(entry, sort) >= Upper(to)) break;
      listed += (held++ > 0 ? " " : "") + entry.palias();
    }
    return listed;
  }

  void CheckRange() {
    const int sort = static_cast<int>(rng_() % 5);
    // Without an order there is no range of keys.
    const std::string from = sort > 0 ? Text(5) : "";
    const std::string to = sort > 0 ? Text(5) : "";
    const std::string group = Pick({"", "g", "G"});
    const int offset = static_cast<int>(rng_() % 4);
    const int max = static_cast<int>(rng_() % 4);
    SCOPED_TRACE(testing::Message() << kSorts[sort] << " from '" << from
                                    << "' to '" << to << "' in '" << group
                                    << "' offset " << offset << " max " << max);
    client_.Reset();
    EXPECT_EQ(client_.Send("lstprl",
                           {{"pbsort", kSorts[sort]},
                            {"pbbeg", from},
                            {"pbend", to},
                            {"galias", group},
                            {"pboffset", std::to_string(offset)},
                            {"pbmax", std::to_string(max)}},
                           nullptr),
              0);
    EXPECT_EQ(client_.Listed(), Range(sort, from, to, group, offset, max));
    if (from.empty() && to.empty()) return;
    EXPECT_EQ(client_.Send("cntper pbkey=" + group), 0);
    EXPECT_EQ(client_.Get("pbmax"),
              std::to_string(Count(sort, from, to, group)));
  }

  // Pages through the book in both directions.
  void CheckPages() {
    const int sort = static_cast<int>(rng_() % 5);
    const std::string group = Pick({"", "g"});
    const std::string step = Pick({"pbc-next", "pbc-prev"});
    SCOPED_TRACE(testing::Message() << kSorts[sort] << " " << group << step);
    std::string expected, listed;
    for (const Entry& entry : Sorted(sort)) {
      if (!IsIn(entry, group)) continue;
      expected.insert(step == "pbc-next" ? expected.size() : 0,
                      entry.palias() + "|");
    }
    client_.Reset();
    client_.Set({{"pbsort", kSorts[sort]},
                 {"rcmd", step},
                 {"galias", group},
                 {"pbmax", std::to_string(1 + rng_() % 5)}});
    do {
      EXPECT_EQ(client_.Send("lstper"), 0);
      for (kx_object* person :
           kx::Elements(kx::Child(client_.com(), "objptr"))) {
        listed += std::string(kx::Text(person, "palias")) + "|";
      }
    } while (kx::Child(client_.com(), "objptr") != nullptr);
    EXPECT_EQ(listed, expected);
  }

  std::mt19937 rng_{20240229};
  std::vector<Entry> book_;
  std::set<std::string> members_;
};

TEST_F(Model, RandomBooks) {
  EXPECT_EQ(client_.Send("grpadd", Group("galias=g")), 0);
  for (int round = 0; round < 25 && !HasFailure(); ++round) {
    for (int i = 0; i < 6; ++i) AddRandomPerson();
    for (int i = 0; i < 3; ++i) AddRandomMember();
    for (int i = 0; i < 2; ++i) DeleteRandomPerson();
    for (int i = 0; i < 20; ++i) CheckRange();
    for (int i = 0; i < 4; ++i) CheckPages();
  }
}

}  // namespace
