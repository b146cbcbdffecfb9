// Object files, request files and the phone book, while calls of the process
// fail.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>

#include "faults/sweep.h"
#include "faxserver/fsdmnlst.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fsmkfreq.h"
#include "faxserver/fsqueue.h"
#include "faxserver/fsshm.h"
#include "kx/kxtext.h"
#include "phonebook/pb.h"
#include "support/objects.h"
#include "support/own_ipc.h"
#include "support/sample_root.h"
#include "util/kutio.h"
#include "util/kutmem.h"

// Leaks of memory, where a sanitizer looks for them.
extern "C" [[gnu::weak]] int __lsan_do_recoverable_leak_check();

namespace {

using support::SampleRoot;

// A piece of work on a root. `run` tells whether it claims success, `check`
// what is wrong then, or when it claims failure.
struct Work {
  const char* name;
  std::function<void(const SampleRoot&)> prepare;
  std::function<bool(const SampleRoot&)> run;
  std::function<std::string(const SampleRoot&, bool done)> check;
};

void PrintTo(const Work& work, std::ostream* out) { *out << work.name; }

std::string Unless(bool right, const std::string& complaint) {
  return right ? "" : complaint;
}

// ---- Objects ----

kx::Object MakeObject(const char* type, const char* field, const char* text) {
  kx::Object object = kx::Build(type);
  kx::SetText(object.get(), field, text);
  return object;
}

const std::string kBytes(9000, 'b');
const std::string kConfig = Object("obj-config", "queue=new\n");

// What the work found, for its check: a work itself must not need memory.
kx::Object g_found;
int g_jobs;

bool Found(kx_object* object) {
  g_found.reset(object);
  return kx_errno == 0;
}

FILE* OpenStream(const char* path, int flags, const char* mode) {
  const int fd = Kut_open(path, flags, 0600);
  FILE* stream = fd >= 0 ? fdopen(fd, mode) : nullptr;
  if (stream == nullptr && fd >= 0) close(fd);
  return stream;
}

// Writes an object that names a file, with the file in it.
bool Pack(kx_object* file) {
  FILE* stream = OpenStream("packed", O_WRONLY | O_CREAT | O_TRUNC, "w");
  if (stream == nullptr) return false;
  const bool written = Kfx_Decomp_Obj(file, kx_write_pair_fp, stream, 1) == 0;
  const bool sound = ferror(stream) == 0;
  return fclose(stream) == 0 && written && sound;
}

bool Unpack(const SampleRoot&) {
  FILE* stream = OpenStream("packed", O_RDONLY, "r");
  if (stream == nullptr) return false;
  const kx::Object file(
      Kfx_Comp_Obj("obj-file", kx_read_pair_fp, stream, "temp"));
  fclose(stream);
  return file != nullptr;
}

// ---- Requests ----

kx::Object MakeRequest(int seqno) {
  kx::Object freq = MakeObject("obj-freq", "clientid", "root");
  kx::SetNumber(freq.get(), "seqno", seqno);
  kx::SetText(freq.get(), "tofnum", "555-0142");
  kx::SetEnum(freq.get(), "active", kx_act_ready);
  return freq;
}

void SaveRequests(const SampleRoot& root) {
  for (const int seqno : {7, 8}) {
    fx_save_freq(root.root(), MakeRequest(seqno).get());
  }
}

// The numbers of the requests, and to whom they go.
std::string ListRequests(kx_object* list) {
  std::string all;
  for (kx_object* freq : kx::Elements(list)) {
    all += kx::TextOrEmpty(freq, "seqno");
    all += std::string(":") + kx::TextOrEmpty(freq, "tofnum") + ":" +
           kx::TextOrEmpty(freq, "clientid") + " ";
  }
  return all;
}

// ---- The phone book ----

void CreateBook(const SampleRoot& root) {
  pb_setup("jsmith", root.root(), nullptr);
  pb_create(kx_pbt_usr);
  pb_open(kx_pbt_usr, kx_pbm_write);
  for (const char* alias : {"ann", "bob", "cid"}) {
    pb_per_add(kx_pbt_usr, MakeObject("obj-person", "palias", alias).get());
  }
  pb_grp_add(kx_pbt_usr, MakeObject("obj-group", "galias", "all").get());
  const kx::Object member = MakeObject("obj-member", "galias", "all");
  kx::SetText(member.get(), "palias", "bob");
  pb_mem_add(kx_pbt_usr, member.get());
  pb_close(kx_pbt_usr);
}

// Carries out `change` on the open book.
bool Change(const std::function<int()>& change) {
  if (pb_open(kx_pbt_usr, kx_pbm_write) != 0) return false;
  const int result = change();
  return pb_close(kx_pbt_usr) == 0 && result == 0;
}

// Finds the book's persons; whether it could.
bool FindPersons(const SampleRoot&) {
  if (pb_open(kx_pbt_usr, kx_pbm_read) != 0) return false;
  g_found.reset(pb_list_per_get(kx_pbt_usr, kx_pbs_alias, kx_pbc_first, nullptr,
                                0, nullptr));
  const bool done = pb_errno == 0;
  pb_close(kx_pbt_usr);
  return done;
}

// The persons that were found, with their last names.
std::string Persons() {
  std::string all;
  for (kx_object* person : kx::Elements(g_found.get())) {
    all += std::string(kx::TextOrEmpty(person, "palias")) +
           kx::TextOrEmpty(person, "lname") + " ";
  }
  return all;
}

std::string Holds(const SampleRoot& root, bool done, const char* before,
                  const char* after) {
  const std::string persons = FindPersons(root) ? Persons() : "unreadable";
  return Unless(persons == (done ? after : before), "the book: " + persons);
}

constexpr char kBook[] = "ann bob cid ";

const Work kWorks[] = {
    {"SaveObject", [](const SampleRoot& root) { root.Put("object", "old"); },
     [](const SampleRoot&) {
       static const kx::Object object =
           MakeObject("obj-config", "queue", "new");
       return Kfx_Save_Obj(object.get(), "object") == 0;
     },
     [](const SampleRoot& root, bool done) {
       const std::string found = ReadFile(root / "object");
       return Unless(found == (done ? kConfig : "old"), found);
     }},
    {"LoadObject", [](const SampleRoot& root) { root.Put("object", kConfig); },
     [](const SampleRoot&) { return Found(Kfx_Load_Obj(nullptr, "object")); },
     [](const SampleRoot&, bool done) {
       return Unless(!done || ToText(g_found.get()) == kConfig, "another");
     }},
    {"PackFile", [](const SampleRoot& root) { root.Put("file", kBytes); },
     [](const SampleRoot&) {
       static const kx::Object file =
           MakeObject("obj-file", "pathname", "file");
       return Pack(file.get());
     },
     [](const SampleRoot& root, bool done) {
       std::filesystem::remove("temp/file");
       return Unless(!done || (Unpack(root) && ReadFile("temp/file") == kBytes),
                     "packed badly");
     }},
    {"UnpackFile",
     [](const SampleRoot& root) {
       root.Put("file", kBytes);
       const kx::Object file = MakeObject("obj-file", "pathname", "file");
       Pack(file.get());
       root.Put("temp/file", "old");
     },
     Unpack,
     [](const SampleRoot&, bool done) {
       // A failure behind the embedded file leaves that in place.
       const std::string found = ReadFile("temp/file");
       return Unless(found == kBytes || (!done && found == "old"),
                     "half a file");
     }},
    {"SaveRequest",
     [](const SampleRoot& root) {
       SaveRequests(root);
       const kx::Object freq = MakeRequest(7);
       kx::SetText(freq.get(), "tofnum", "1");
       fx_save_freq(root.root(), freq.get());
     },
     [](const SampleRoot& root) {
       static const kx::Object freq = MakeRequest(7);
       return fx_save_freq(root.root(), freq.get()) == 0;
     },
     [](const SampleRoot& root, bool done) {
       const kx::Object list(fx_rd_freqs(root.root()));
       const std::string found = ListRequests(list.get());
       const std::string rest = ":root 8:555-0142:root ";
       return Unless(found == (done ? "7:555-0142" : "7:1") + rest, found);
     }},
    {"ListRequests", SaveRequests,
     [](const SampleRoot& root) { return Found(fx_rd_freqs(root.root())); },
     [](const SampleRoot&, bool done) {
       const std::string found = ListRequests(g_found.get());
       return Unless(!done || found == "7:555-0142:root 8:555-0142:root ",
                     found);
     }},
    {"MakeRequest",
     [](const SampleRoot& root) {
       root.AddUser("jsmith");
       SaveRequests(root);
       root.Put("OSEQF", "6\n");
     },
     [](const SampleRoot& root) {
       static const kx::Object env = MakeObject("obj-env", "tofnum", "1");
       return Found(fx_make_freq(root.root(), "jsmith", env.get()));
     },
     [](const SampleRoot&, bool done) {
       return Unless(!done || kx::Number(g_found.get(), "seqno") == 9,
                     "a number that is taken");
     }},
    {"SetDefaultQueue",
     [](const SampleRoot& root) { fx_queue_set_default(root.root(), "old"); },
     [](const SampleRoot& root) {
       return fx_queue_set_default(root.root(), "new") == 0;
     },
     [](const SampleRoot& root, bool done) {
       const std::string found = fx_queue_get_default(root.root());
       return Unless(found == (done ? "new" : "old"), found);
     }},
    {"CleanRegister",
     [](const SampleRoot& root) {
       const std::string own = std::to_string(getpid()) + ":other\n";
       root.Put("krtnet/krtnet.lck", "1:mine\n" + own);
     },
     [](const SampleRoot& root) {
       return fx_upd_daemon_list(root.root(), "mine") == 0;
     },
     [](const SampleRoot& root, bool done) {
       const std::string own = std::to_string(getpid()) + ":other\n";
       const std::string found = ReadFile(root / "krtnet/krtnet.lck");
       return Unless(found == (done ? own : "1:mine\n" + own), found);
     }},
    {"ReadStatusMemory",
     [](const SampleRoot&) {
       fx_creat_stat_shm("", 1);
       fx_set_jobs_in_queue(5);
       fx_shm_detach();
     },
     [](const SampleRoot& root) {
       g_jobs = fx_get_jobs_in_queue(root.root());
       fx_shm_detach();
       return g_jobs != -1;
     },
     [](const SampleRoot&, bool done) {
       return Unless(!done || g_jobs == 5, std::to_string(g_jobs) + " jobs");
     }},
    {"CreateBook",
     [](const SampleRoot& root) {
       std::filesystem::remove_all(root / "faxq/jsmith");
       pb_setup("jsmith", root.root(), nullptr);
     },
     [](const SampleRoot&) { return pb_create(kx_pbt_usr) == 0; },
     [](const SampleRoot& root, bool done) {
       // What a failure left behind stands in nobody's way.
       if (!done && pb_create(kx_pbt_usr) != 0)
         return std::string("in the way");
       return Holds(root, true, "", "");
     }},
    {"AddPerson", CreateBook,
     [](const SampleRoot&) {
       static const kx::Object person =
           MakeObject("obj-person", "palias", "dan");
       return Change([] { return pb_per_add(kx_pbt_usr, person.get()); });
     },
     [](const SampleRoot& root, bool done) {
       return Holds(root, done, kBook, "ann bob cid dan ");
     }},
    {"ChangePerson", CreateBook,
     [](const SampleRoot&) {
       static const kx::Object person = [] {
         kx::Object made = MakeObject("obj-person", "palias", "bob");
         kx::SetText(made.get(), "lname", "Lee");
         return made;
       }();
       return Change([] { return pb_per_upd(kx_pbt_usr, person.get()); });
     },
     [](const SampleRoot& root, bool done) {
       return Holds(root, done, kBook, "ann bobLee cid ");
     }},
    {"DeletePerson", CreateBook,
     [](const SampleRoot&) {
       return Change([] { return pb_per_del(kx_pbt_usr, "bob"); });
     },
     [](const SampleRoot& root, bool done) {
       return Holds(root, done, kBook, "ann cid ");
     }},
    {"ListPersons", CreateBook, FindPersons,
     [](const SampleRoot&, bool done) {
       return Unless(!done || Persons() == kBook, Persons());
     }},
    {"DeleteBook", CreateBook,
     [](const SampleRoot&) { return pb_delete(kx_pbt_usr) == 0; },
     [](const SampleRoot& root, bool done) {
       const int left = CountFiles(root / "faxq/jsmith/options");
       return Unless(!done || left == 0, std::to_string(left) + " files");
     }},
};

class Library : public ::testing::TestWithParam<Work> {
 protected:
  // One run with the fault at call `n`. What is wrong, or "".
  std::string Run(const FaultRow& row, int n) {
    const Work& work = GetParam();
    std::filesystem::remove_all(root_ / "faxq/jsmith");
    g_found.reset();
    work.prepare(root_);
    kut_memstats before;
    kut_memstats after;
    Kut_mstats(&before);
    const int fds = CountDescriptors(getpid());
    fault::Arm(page_, row.call, row.error, n, row.lasts);
    const bool done = work.run(root_);
    fault::Disarm(page_);
    const std::string wrong = work.check(root_, done);
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
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(root_.path())) {
      const bool temp = entry.path().string().find(".new") != std::string::npos;
      if (temp) std::filesystem::remove(entry.path());
      if (temp && row.call != fault::kUnlink) return "left a temporary file";
    }
    return "";
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
};

TEST_P(Library, EveryFault) {
  const OwnIpc ipc;
  SKIP_WITHOUT(ipc);
  for (const FaultRow& row : kFaults) {
    const pid_t child = fork();
    if (child == 0) _exit(SweepAlone(row));
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "last " << Describe(row, page_->at);
  }
}

INSTANTIATE_TEST_SUITE_P(, Library, ::testing::ValuesIn(kWorks),
                         [](const auto& param) { return param.param.name; });

}  // namespace
