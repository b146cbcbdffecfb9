// Object files, request files and the phone book, while calls of the process
// fail.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <iostream>

#include "cm/cmdaemon.h"
#include "faults/sweep.h"
#include "faxserver/fscover.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fsmkfreq.h"
#include "faxserver/fstags.h"
#include "kx/kxtext.h"
#include "phonebook/pb.h"
#include "support/child.h"
#include "support/objects.h"
#include "support/sample_root.h"
#include "util/kutio.h"
#include "util/kutmem.h"

// Leaks of memory, where a sanitizer looks for them.
extern "C" [[gnu::weak]] int __lsan_do_recoverable_leak_check();

namespace {

using support::SampleRoot;

// A piece of work on a root. `file` holds `before` and, if the work claims
// success, `after`; a book has the usual persons and then `persons`. What the
// work finds is compared with what it finds when nothing fails.
struct Work {
  const char* name;
  bool (*run)(const SampleRoot&);
  void (*prepare)(const SampleRoot&) = nullptr;
  const char* file = nullptr;
  std::string before = "", after = "";
  const char* persons = nullptr;
};

void PrintTo(const Work& work, std::ostream* out) { *out << work.name; }

// What the work found. A work itself needs no memory but the library's.
kx::Object g_found;

bool Found(kx_object* object) {
  g_found.reset(object);
  return kx_errno == 0;
}

kx::Object MakeObject(const char* type, const char* field, const char* text) {
  kx::Object object = kx::Build(type);
  kx::SetText(object.get(), field, text);
  return object;
}

const std::string kBytes(9000, 'b');
constexpr char kBook[] = "ann bob cid ";

// ---- Objects ----

void PackObject(const SampleRoot& root) {
  root.Put("file", kBytes);
  const kx::Object object = MakeObject("obj-file", "pathname", "file");
  FILE* stream = fopen("packed", "w");
  Kfx_Decomp_Obj(object.get(), kx_write_pair_fp, stream, 1);
  fclose(stream);
}

bool Unpack(const SampleRoot&) {
  const int fd = Kut_open("packed", O_RDONLY);
  FILE* stream = fd >= 0 ? fdopen(fd, "r") : nullptr;
  if (stream == nullptr) {
    if (fd >= 0) close(fd);
    return false;
  }
  const kx::Object file(
      Kfx_Comp_Obj("obj-file", kx_read_pair_fp, stream, "temp"));
  fclose(stream);
  return file != nullptr;
}

// ---- Requests ----

kx::Object Request(int seqno, const char* number) {
  kx::Object freq = MakeObject("obj-freq", "clientid", "root");
  kx::SetNumber(freq.get(), "seqno", seqno);
  kx::SetText(freq.get(), "tofnum", number);
  kx::SetEnum(freq.get(), "active", kx_act_ready);
  return freq;
}

void SaveRequests(const SampleRoot& root) {
  root.AddUser("jsmith");
  root.Put("OSEQF", "6\n");
  root.Put("krtnet/envtags", "sendres=low\nmaxtrys=9\n");
  root.Put("Default", "laser\n");
  fx_save_freq(root.root(), Request(7, "1").get());
  fx_save_freq(root.root(), Request(8, "555-0142").get());
}

bool SaveRequest(const SampleRoot& root) {
  static const kx::Object freq = Request(7, "22");
  return fx_save_freq(root.root(), freq.get()) == 0;
}

// The default queue and the tag table say what the client did not. The
// request's number is new, and its times are none that could be compared.
bool MakeRequest(const SampleRoot& root) {
  static const kx::Object env = MakeObject("obj-env", "tofnum", "1");
  fx_reset_tags();
  if (!Found(fx_make_freq(root.root(), "jsmith", env.get()))) return false;
  for (const char* field : {"submittime", "sendtime", "exptime"}) {
    kx::SetText(g_found.get(), field, nullptr);
  }
  return true;
}

// ---- What the fax server has beside ----

void AddCovers(const SampleRoot& root) {
  root.PutProgram("Covers/formal.cvr", "echo NAME:R");
  root.PutProgram("Covers/plain.cvr", "echo NAME:R");
}

// Of a daemon that runs as long as the test.
std::string Entry(const char* daemon) {
  static const pid_t pid = getpid();
  return std::to_string(pid) + ":" + daemon + "\n";
}

// ---- The phone book ----

void SetUpBook(const SampleRoot& root) {
  std::filesystem::remove_all(root / "faxq/jsmith");
  pb_setup("jsmith", root.root(), nullptr);
}

// Carries out `change` on the open book.
template <typename Step>
bool Change(Step step) {
  if (pb_open(kx_pbt_usr, kx_pbm_write) != 0) return false;
  const int result = step();
  return pb_close(kx_pbt_usr) == 0 && result == 0;
}

void CreateBook(const SampleRoot& root) {
  SetUpBook(root);
  pb_create(kx_pbt_usr);
  Change([] {
    for (const char* alias : {"ann", "bob", "cid"}) {
      pb_per_add(kx_pbt_usr, MakeObject("obj-person", "palias", alias).get());
    }
    pb_grp_add(kx_pbt_usr, MakeObject("obj-group", "galias", "all").get());
    const kx::Object member = MakeObject("obj-member", "galias", "all");
    kx::SetText(member.get(), "palias", "bob");
    return pb_mem_add(kx_pbt_usr, member.get());
  });
}

bool AddPerson(const SampleRoot&) {
  static const kx::Object person = MakeObject("obj-person", "palias", "dan");
  return Change([] { return pb_per_add(kx_pbt_usr, person.get()); });
}

bool ChangePerson(const SampleRoot&) {
  static const kx::Object person = MakeObject("obj-person", "palias", "bob");
  kx::SetText(person.get(), "lname", "Lee");
  return Change([] { return pb_per_upd(kx_pbt_usr, person.get()); });
}

bool DeletePerson(const SampleRoot&) {
  return Change([] { return pb_per_del(kx_pbt_usr, "bob"); });
}

bool ListPersons(const SampleRoot&) {
  if (pb_open(kx_pbt_usr, kx_pbm_read) != 0) return false;
  g_found.reset(pb_list_per_get(kx_pbt_usr, kx_pbs_alias, kx_pbc_first, nullptr,
                                0, nullptr));
  const bool done = pb_errno == 0;
  pb_close(kx_pbt_usr);
  return done;
}

bool Create(const SampleRoot&) { return pb_create(kx_pbt_usr) == 0; }

// The persons of the book, with their last names.
std::string Persons(const SampleRoot& root) {
  // What a creation or deletion that failed left stands in nobody's way.
  if (pb_create(kx_pbt_usr) != 0 || !ListPersons(root)) return "damaged";
  std::string all;
  for (kx_object* person : kx::Elements(g_found.get())) {
    all += std::string(kx::TextOrEmpty(person, "palias")) +
           kx::TextOrEmpty(person, "lname") + " ";
  }
  return all;
}

const Work kWorks[] = {
    {"SaveObject",
     [](const SampleRoot&) {
       static const kx::Object object =
           MakeObject("obj-config", "queue", "new");
       return Kfx_Save_Obj(object.get(), "object") == 0;
     },
     nullptr, "object", "old", Object("obj-config", "queue=new\n")},
    {"LoadObject",
     [](const SampleRoot&) { return Found(Kfx_Load_Obj(nullptr, "packed")); },
     PackObject},
    {"UnpackFile", Unpack, PackObject, "temp/file", "old", kBytes},
    {"SaveRequest", SaveRequest, SaveRequests},
    {"ListRequests",
     [](const SampleRoot& root) { return Found(fx_rd_freqs(root.root())); },
     SaveRequests},
    {"MakeRequest", MakeRequest, SaveRequests},
    {"MatchCovers",
     [](const SampleRoot& root) {
       return Found(fx_cover_matchlist(root.root(), nullptr));
     },
     AddCovers},
    {"LeaveRegister",
     [](const SampleRoot& root) {
       return fx_upd_daemon_list(root.root(), kCmFileDaemon) == 0;
     },
     nullptr, "krtnet/krtnet.lck", Entry(kCmFileDaemon) + Entry(kCmNetDaemon),
     Entry(kCmNetDaemon)},
    {.name = "CreateBook", .run = Create, .prepare = SetUpBook, .persons = ""},
    {.name = "AddPerson",
     .run = AddPerson,
     .prepare = CreateBook,
     .persons = "ann bob cid dan "},
    {.name = "ChangePerson",
     .run = ChangePerson,
     .prepare = CreateBook,
     .persons = "ann bobLee cid "},
    {.name = "DeletePerson",
     .run = DeletePerson,
     .prepare = CreateBook,
     .persons = "ann cid "},
    {"ListPersons", ListPersons, CreateBook},
};

class Library : InMemory, public ::testing::TestWithParam<Work> {
 protected:
  // One run with the fault at call `n`. What is wrong, or "".
  std::string Run(const FaultRow& row, int n) {
    const Work& work = GetParam();
    if (work.prepare != nullptr) work.prepare(root_);
    if (work.file != nullptr) root_.Put(work.file, work.before);
    kut_memstats before;
    kut_memstats after;
    Kut_mstats(&before);
    const long fds = CountDescriptors(getpid());
    fault::Arm(page_, row.call, row.error, n, row.lasts);
    const bool done = work.run(root_);
    fault::Disarm(page_);
    std::string wrong = Check(done);
    g_found.reset();
    Kut_mstats(&after);
    if (!wrong.empty()) return (done ? "done: " : "failed: ") + wrong;
    if (!done && page_->failed == 0) return "fails by itself";
    if (CountDescriptors(getpid()) != fds) return "leaks a descriptor";
    // The first run makes what the work keeps.
    if (row.call != fault::kNone &&
        after.allocs - after.frees != before.allocs - before.frees) {
      return "leaks memory";
    }
    return RemoveTemporaries(root_.path()) && row.call != fault::kUnlink
               ? "left a temporary file"
               : "";
  }

  std::string Check(bool done) {
    const Work& work = GetParam();
    const std::string text = g_found != nullptr ? ToText(g_found.get()) : "";
    if (good_.empty()) good_ = text;
    if (done && text != good_) return "found " + text;
    if (work.file != nullptr) {
      const std::string found = ReadFile(work.file);
      const bool right = found == (done ? work.after : work.before);
      // A failure behind an embedded file leaves that in place.
      const bool unpacked = work.run == Unpack && found == work.after;
      if (!right && !unpacked) return "the file holds " + found;
    }
    if (work.run == SaveRequest) return CheckRequest(done);
    if (work.persons == nullptr) return "";
    const std::string persons = Persons(root_);
    const char* otherwise = work.run == Create ? "" : kBook;
    return Unless(persons == (done ? work.persons : otherwise),
                  "the book: " + persons);
  }

  std::string CheckRequest(bool done) {
    const kx::Object freq(fx_load_freq(root_.root(), 7, 0));
    const std::string number =
        freq != nullptr ? kx::TextOrEmpty(freq.get(), "tofnum") : "none";
    return Unless(number == (done ? "22" : "1"),
                  "the request goes to " + number);
  }

  // The whole row, in a process of its own: what kills it is one more failure.
  // The number of failures.
  int Sweep(const FaultRow& row) {
    int failures = 0;
    for (int n = 1; n < 2000 && failures < 5; ++n) {
      const std::string wrong = Run(row, n);
      if (!wrong.empty()) {
        ++failures;
        std::cerr << Describe(row, n) << ": " << wrong << "\n";
      }
      if (page_->failed == 0) break;
    }
    if (__lsan_do_recoverable_leak_check != nullptr &&
        __lsan_do_recoverable_leak_check() != 0) {
      ++failures;
    }
    return failures;
  }

  int SweepAlone(const FaultRow& row) try {
    fault::Use(page_);
    if (chdir(root_.root()) != 0) return 1;
    // The statics of the work are made before anything fails.
    const std::string wrong = Run({fault::kNone, 0}, 1);
    if (wrong.empty()) return Sweep(row);
    std::cerr << "without a fault: " << wrong << "\n";
    return 1;
  } catch (const std::exception& thrown) {
    std::cerr << "thrown: " << thrown.what() << "\n";
    return 1;
  }

  SampleRoot root_;
  fault::Page* page_ = fault::MapPage(nullptr);
  std::string good_;  // what is found when nothing fails
};

TEST_P(Library, EveryFault) {
  for (const FaultRow& row : kFaults) {
    EXPECT_EQ(InChild([&] { return SweepAlone(row); }), 0)
        << "last " << Describe(row, page_->at);
  }
}

INSTANTIATE_TEST_SUITE_P(, Library, ::testing::ValuesIn(kWorks),
                         [](const auto& param) { return param.param.name; });

}  // namespace
