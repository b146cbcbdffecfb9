// The lists that clients ask for most, beside the bare system calls that each
// needs.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "cm/cmkrt.h"
#include "faxserver/fsfreq.h"
#include "faxserver/fshdr.h"
#include "faxserver/fslist.h"
#include "faxserver/fsolog.h"
#include "faxserver/fsstat.h"
#include "faxserver/fsstate.h"
#include "kx/object.h"
#include "measure.h"
#include "util/kutdir.h"
#include "util/kutio.h"

namespace {

constexpr int kFaxes = 5000;
constexpr int kRequests = 2000;
constexpr int kLogRecords = 1'000'000;

// A fax server's root with all of that in it.
class Root {
 public:
  Root() {
    for (const char* dir : {"faxq/bob/events", "requests", "logs"}) {
      std::filesystem::create_directories(*this / dir);
    }
    PutFaxes();
    PutRequests();
    PutLog();
  }

  const char* path() const { return folder_.path().c_str(); }
  std::string operator/(const std::string& name) const {
    return folder_ / name;
  }

 private:
  void Put(const std::string& name, const std::string& content) const {
    std::ofstream(*this / name) << content;
  }
  void PutFaxes() const {
    const fx_faxhdr header = fx_make_faxhdr(3);
    const std::string image(reinterpret_cast<const char*>(header.bytes),
                            sizeof header.bytes);
    for (int i = 0; i < kFaxes; ++i) {
      Put("faxq/bob/in-" + std::to_string(i) + ".fax", image + "image");
    }
  }
  void PutRequests() const {
    const kx::Object freq = kx::Build("obj-freq");
    for (const char* field : {"tofnum", "tsi", "queue", "mailaddr"}) {
      kx::SetText(freq.get(), field, "some-text");
    }
    kx::SetText(freq.get(), "faxpath", "/usr/krtfax/spool/temp/f-1.fax");
    kx::SetText(freq.get(), "clientid", "root");
    for (int i = 1; i <= kRequests; ++i) {
      kx::SetNumber(freq.get(), "seqno", i);
      Must(fx_save_freq(path(), freq.get()) == 0, "fx_save_freq");
    }
  }
  // The request that is asked for has its three attempts near the end.
  void PutLog() const {
    Put("faxq/bob/events/42",
        "objbeg=obj-status\nseqno=42\nattempt=3\nobjend=obj-status\n");
    std::ofstream log(*this / "logs/OLOG");
    for (int i = 0; i < kLogRecords; ++i) {
      fx_olog_record record;
      record.clientid = "bob";
      record.seqno = i >= kLogRecords - 300 && i % 100 == 0 ? 42 : 1000 + i;
      record.attempt = 1 + i % 3;
      const fx_olog_bytes bytes = fx_encode_olog(record);
      log.write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
  }

  const Folder folder_;
};

const Root& TheRoot() {
  static const Root root;
  return root;
}

// Opens, looks at and reads one file.
void ReadBare(int dirfd, const char* name, size_t limit) {
  char buffer[4096];
  const UniqueFd fd(Kut_open_at(dirfd, name, O_RDONLY));
  struct stat st;
  fstat(fd.get(), &st);
  benchmark::DoNotOptimize(read(fd.get(), buffer, limit));
}

void ReadAllBare(const std::string& path, size_t limit) {
  DirReader dir;
  Must(dir.Open(path.c_str()) == 0, "opening a directory");
  while (const char* name = dir.Next()) ReadBare(dir.fd(), name, limit);
}

void MessageList(benchmark::State& state) {
  const Root& root = TheRoot();
  Compare(
      state,
      [&] {
        const kx::Object list(fx_get_fax_list(root.path(), "bob", 0));
        Must(Kfx_Bcount(list.get()) == kFaxes, "fx_get_fax_list");
      },
      [&] { ReadAllBare(root / "faxq/bob", 256); });
}
BENCHMARK(MessageList)->Unit(benchmark::kMillisecond);

void State(benchmark::State& state) {
  const Root& root = TheRoot();
  Compare(
      state,
      [&] {
        const kx::Object object(fx_get_state(root.path()));
        Must(Kfx_Bcount(kx::Child(object.get(), "freqlist")) == kRequests,
             "fx_get_state");
      },
      [&] { ReadAllBare(root / "requests", 4096); });
}
BENCHMARK(State)->Unit(benchmark::kMillisecond);

// A user owns the queue directory: what is below is opened step by step, no
// link followed.
void StatusList(benchmark::State& state) {
  const Root& root = TheRoot();
  const std::string queue = root / "faxq/bob";
  const std::string log = root / "logs/OLOG";
  Compare(
      state,
      [&] {
        const kx::Object list(fx_status_list(root.path(), "bob", 42));
        Must(Kfx_Bcount(list.get()) == 4, "fx_status_list");
      },
      [&] {
        static char block[390 * kFxOlogRecordSize];
        const UniqueFd above(Kut_open(queue.c_str(), O_PATH | O_DIRECTORY));
        const UniqueFd events(
            Kut_open_at(above.get(), "events", O_PATH | O_DIRECTORY));
        ReadBare(events.get(), "42", 4096);
        const UniqueFd fd(Kut_open(log.c_str(), O_RDONLY));
        struct stat st;
        fstat(fd.get(), &st);
        benchmark::DoNotOptimize(
            pread(fd.get(), block, sizeof block,
                  st.st_size - static_cast<off_t>(sizeof block)));
      });
}
BENCHMARK(StatusList)->Unit(benchmark::kMicrosecond);

// The owner of a request stands in it by number: the name comes from the
// system's user file.
void RequestRead(benchmark::State& state) {
  const Root& root = TheRoot();
  const std::string file = root / "requests/r-7";
  Compare(
      state,
      [&] {
        const kx::Object freq(fx_load_freq(root.path(), 7, 0));
        Must(freq != nullptr, "fx_load_freq");
      },
      [&] {
        ReadBare(AT_FDCWD, file.c_str(), 4096);
        ReadBare(AT_FDCWD, "/etc/passwd", 4096);
      });
}
BENCHMARK(RequestRead)->Unit(benchmark::kMicrosecond);

// The bare calls replace the file in the same way: a new one, then a rename. A
// request holds its owner's number and that of the fax system's group, which is
// looked up each time on a machine that has no such group.
void RequestWrite(benchmark::State& state) {
  const Root& root = TheRoot();
  const kx::Object freq(fx_load_freq(root.path(), 7, 0));
  const std::string file = root / "requests/r-7";
  const std::string temp = root / "requests/.new";
  const std::string content(300, 'x');
  Compare(
      state,
      [&] { Must(fx_save_freq(root.path(), freq.get()) == 0, "fx_save_freq"); },
      [&] {
        struct stat st;
        stat(file.c_str(), &st);
        ReadBare(AT_FDCWD, "/etc/passwd", 4096);
        cm_get_krt_gid();
        const UniqueFd fd(
            Kut_open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644));
        Kut_write_full(fd.get(), content.data(), content.size());
        rename(temp.c_str(), file.c_str());
      });
  fx_save_freq(root.path(), freq.get());
}
BENCHMARK(RequestWrite)->Unit(benchmark::kMicrosecond);

}  // namespace
