// The phone book's counts and lists in books of two sizes: what a command takes
// from a range of 20 persons must not depend on the size of the book.
//
// Each argument is a number of persons.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "kx/object.h"
#include "measure.h"
#include "phonebook/pb.h"
#include "util/kutenv.h"

namespace {

constexpr int kInRange = 20;
constexpr char kUser[] = "bench";
constexpr int kBook = kx_pbt_sys;

void Check(int result, const char* what) {
  Must(result >= 0 && pb_errno == 0, what);
}

// Persons are added in an order that has nothing to do with their names.
std::string NameOf(int i) {
  char name[16];
  snprintf(name, sizeof name, "N%06d", i);
  return name;
}

void Fill(int persons) {
  constexpr int kStride = 7919;
  Check(pb_create(kBook), "create");
  Check(pb_open(kBook, kx_pbm_write), "open");
  const kx::Object group = kx::Build("obj-group");
  kx::SetText(group.get(), "galias", "g");
  Check(pb_grp_add(kBook, group.get()), "group");
  const kx::Object person = kx::Build("obj-person");
  const kx::Object member = kx::Build("obj-member");
  kx::SetText(member.get(), "galias", "g");
  for (int n = 0; n < persons; ++n) {
    const int i = static_cast<int>(static_cast<long>(n) * kStride % persons);
    const std::string name = NameOf(i);
    for (const char* field : {"palias", "lname", "fname", "company"}) {
      kx::SetText(person.get(), field, name.c_str());
    }
    Check(pb_per_add(kBook, person.get()), "person");
    if (i % 10 != 0) continue;
    kx::SetText(member.get(), "palias", name.c_str());
    Check(pb_mem_add(kBook, member.get()), "member");
  }
  Check(pb_close(kBook), "close");
}

// The directory with a book of that many persons, made at first use.
const std::string& Book(int persons) {
  static std::map<int, std::unique_ptr<const Folder>> books;
  auto& folder = books[persons];
  if (folder == nullptr) {
    folder = std::make_unique<const Folder>();
    pb_setup(kUser, folder->path().c_str(), nullptr);
    const WithoutFlushes fast;
    Fill(persons);
  }
  return folder->path();
}

// The bounds of 20 persons in the middle.
struct Bounds {
  explicit Bounds(int persons)
      : from(NameOf(persons / 2)), to(NameOf(persons / 2 + kInRange)) {}
  const std::string from;
  const std::string to;
};

// Opens the book for one benchmark.
class OpenBook {
 public:
  explicit OpenBook(benchmark::State& state)
      : persons(static_cast<int>(state.range(0))), bounds(persons) {
    const std::string& root = Book(persons);
    setenv("KFAXDIR", root.c_str(), 1);
    Kut_env_reset();
    pb_setup(kUser, root.c_str(), nullptr);
    Check(pb_open(kBook, kx_pbm_read), "open");
  }
  ~OpenBook() { pb_close(kBook); }
  const int persons;
  const Bounds bounds;
};

void ExpectLength(kx_object* list, int length) {
  Must(Kfx_Bcount(list) == length, "listing");
  if (list != nullptr) Kfx_Free_Obj(list);
}

void CountRange(benchmark::State& state) {
  const OpenBook book(state);
  Repeat(state, [&] {
    Must(
        pb_count_persons(kBook, kx_pbs_lname, nullptr, book.bounds.from.c_str(),
                         book.bounds.to.c_str()) == kInRange,
        "counting");
  });
}

// As the range of a count would be walked without seeking its start.
void CountFromTheFirst(benchmark::State& state) {
  const OpenBook book(state);
  Repeat(state, [&] {
    Must(
        pb_count_persons(kBook, kx_pbs_lname, nullptr, nullptr,
                         book.bounds.to.c_str()) == book.persons / 2 + kInRange,
        "counting");
  });
}

void CountMembersInRange(benchmark::State& state) {
  const OpenBook book(state);
  Repeat(state, [&] {
    Must(pb_count_persons(kBook, kx_pbs_lname, "g", book.bounds.from.c_str(),
                          book.bounds.to.c_str()) == kInRange / 10,
         "counting");
  });
}

void ListRange(benchmark::State& state) {
  const OpenBook book(state);
  Repeat(state, [&] {
    ExpectLength(
        pb_list_per_pos_get(kBook, kx_pbs_company, book.bounds.from.c_str(),
                            book.bounds.to.c_str(), nullptr, 0, 0),
        kInRange);
  });
}

void ListFromAName(benchmark::State& state) {
  const OpenBook book(state);
  Repeat(state, [&] {
    ExpectLength(pb_list_per_get(kBook, kx_pbs_lname, kx_pbc_gteq,
                                 book.bounds.from.c_str(), kInRange, nullptr),
                 kInRange);
  });
}

// The last page of a group, which everything before it must not slow down.
void ListLastMembers(benchmark::State& state) {
  const OpenBook book(state);
  Repeat(state, [&] {
    ExpectLength(pb_list_mem_get_by_grp(kBook, kx_pbc_last, "g", kInRange),
                 kInRange);
  });
}

// A whole command, with its open and close: the next 20 persons.
void CommandListNext(benchmark::State& state) {
  const OpenBook book(state);
  pb_close(kBook);
  const kx::Object com = kx::Build("obj-pbcom");
  const auto set = [&com](const char* field, const char* text) {
    kx::SetText(com.get(), field, text);
  };
  set("pbtype", "pbt-sys");
  set("pbmode", "pbm-read");
  set("pbsort", "pbs-lname");
  set("pbcmd", "pbc-lstper");
  set("pbmax", "20");
  set("pbkey", book.bounds.from.c_str());
  set("rcmd", "pbc-gteq");
  Check(do_pbcmd(kUser, com.get()), "list");
  set("rcmd", "pbc-next");
  const std::string cursor = kx::Text(com.get(), "curper");
  Repeat(state, [&] {
    set("curper", cursor.c_str());
    Check(do_pbcmd(kUser, com.get()), "list");
  });
  Must(Kfx_Bcount(kx::Child(com.get(), "objptr")) == kInRange, "listing");
}

void CommandGetByAlias(benchmark::State& state) {
  const OpenBook book(state);
  pb_close(kBook);
  const kx::Object com = kx::Build("obj-pbcom");
  for (const auto& [field, text] :
       std::map<const char*, std::string>{{"pbtype", "pbt-sys"},
                                          {"pbmode", "pbm-read"},
                                          {"pbcmd", "pbc-perget"},
                                          {"rcmd", "pbc-alias"},
                                          {"pbkey", book.bounds.from}}) {
    kx::SetText(com.get(), field, text.c_str());
  }
  Repeat(state, [&] { Check(do_pbcmd(kUser, com.get()), "get"); });
}

}  // namespace

#define BOTH_SIZES(name) \
  BENCHMARK(name)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMicrosecond)
BOTH_SIZES(CountRange);
BOTH_SIZES(CountMembersInRange);
BOTH_SIZES(ListRange);
BOTH_SIZES(ListFromAName);
BOTH_SIZES(ListLastMembers);
BOTH_SIZES(CommandListNext);
BOTH_SIZES(CommandGetByAlias);
BOTH_SIZES(CountFromTheFirst);
