// A disk that is full for a while: a small one of the test's own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <set>

#include "endurance/spool_client.h"
#include "support/peers.h"
#include "support/processes.h"
#include "util/kutuser.h"

namespace endurance {
namespace {

using std::chrono::milliseconds;
using support::DaemonProcess;
using support::Eventually;
using support::Exit;
using support::ReadFile;
using support::SampleRoot;

// A file system in memory that nobody but this process and its children sees.
class SmallDisk {
 public:
  explicit SmallDisk(const char* size) {
    if (unshare(CLONE_NEWNS) != 0) return;
    mounted_ = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               mount("krt-disk", path().c_str(), "tmpfs", 0, size) == 0;
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  ~SmallDisk() {
    if (mounted_) umount2(path().c_str(), MNT_DETACH);
  }
  bool mounted() const { return mounted_; }
  const std::string& path() const { return dir_.path(); }

  // Takes all the room there is: bytes, and then names as well.
  void Fill() {
    const std::string block(4096, 'x');
    const UniqueFd fd(Kut_open((path() + "/ballast").c_str(),
                               O_WRONLY | O_CREAT | O_APPEND, 0600));
    while (write(fd.get(), block.data(), block.size()) > 0) {
    }
    EXPECT_EQ(errno, ENOSPC);
  }
  void FillNames() {
    const std::string dir = path() + "/names/";
    std::filesystem::create_directories(dir);
    for (int n = 0;; ++n) {
      const UniqueFd fd(Kut_open((dir + std::to_string(n)).c_str(),
                                 O_WRONLY | O_CREAT, 0600));
      if (!fd.valid()) break;
    }
    EXPECT_EQ(errno, ENOSPC);
  }
  void MakeRoom() const {
    std::filesystem::remove(path() + "/ballast");
    std::filesystem::remove_all(path() + "/names");
  }

 private:
  const TempDir dir_;
  bool mounted_ = false;
};

// Workers, and inline; out of bytes, and out of names.
struct Mode {
  const char* daemons;
  bool names;
  std::string Name() const {
    return std::string(*daemons == '0' ? "Workers" : "Inline") +
           (names ? "NoNames" : "NoBytes");
  }
};
void PrintTo(const Mode& mode, std::ostream* out) { *out << mode.Name(); }

class FullDisk : public testing::TestWithParam<Mode> {
 protected:
  void SetUp() override {
    if (!disk_.mounted()) GTEST_SKIP() << "needs root and mount(2)";
    const std::string temp = std::filesystem::temp_directory_path();
    setenv("TMPDIR", disk_.path().c_str(), 1);
    root_.emplace();
    setenv("TMPDIR", temp.c_str(), 1);
    root_->AddUser(user_);
  }
  const SampleRoot& root() const { return *root_; }
  void Fill() { GetParam().names ? disk_.FillNames() : disk_.Fill(); }

  // What a client asks for, with a result of 0 where there is room.
  struct Request {
    std::string type, more, alias;
  };
  Request Next(int n) {
    const std::string alias = "P" + std::to_string(++persons_);
    switch (n % 6) {
      case 0:
      case 1:
      case 2:
        return {"cmd-pbcmd", Book("peradd", Person(alias)), alias};
      case 3:
        return {"cmd-sendfax",
                "respond=true\n" + Argument("obj-senv", "tofnum=1\n"), ""};
      case 4:
        return {"cmd-setcfg",
                Argument("obj-config", "queue=q" + std::to_string(n) + "\n"),
                ""};
      default:
        return {"cmd-reslist", ListOf("lst-results"), ""};
    }
  }
  // The answers that have come. A submit that is done has its record in the
  // fifo instead: it is the queueing side that would answer.
  std::vector<Answer> Take(SpoolClient& client) {
    std::vector<Answer> answers = client.Take(milliseconds(5));
    const std::string records = queueing_->Take();
    for (size_t at = 0; at < records.size(); at += 80) {
      answers.push_back({records.c_str() + at, 0, "", ""});
      client.Waive(answers.back().name);
    }
    return answers;
  }
  Answer Ask(SpoolClient& client, const Request& request) {
    Answer answer;
    client.Send(request.type, request.more);
    EXPECT_TRUE(Eventually([&] {
      for (Answer& each : Take(client)) answer = std::move(each);
      return client.open().empty();
    })) << request.type;
    return answer;
  }
  // An answer is a success or says why not; which of both stands in the book.
  void Judge(const Answer& answer, const Request& request) {
    EXPECT_GE(answer.result, 0) << request.type << answer.errmsg;
    EXPECT_EQ(answer.errmsg.empty(), answer.result == 0) << answer.text;
    ++(answer.result == 0 ? done_ : refused_);
    if (answer.result != 0) {
      errors_.insert(request.type + ": " + std::to_string(answer.result) +
                     ", " + answer.errmsg);
    }
    if (request.type == "cmd-sendfax") {
      const bool saved = std::filesystem::exists(
          root().path() / ("krtnet/queued/" + answer.name));
      EXPECT_EQ(saved, answer.result == 0) << answer.text;
    }
    if (!request.alias.empty()) {
      (answer.result == 0 ? kept_ : dropped_).push_back(request.alias);
    }
  }
  void ExpectNormalService(SpoolClient& client) {
    for (int n = 0; n < 8; ++n) {
      const Request request = Next(n);
      const Answer answer = Ask(client, request);
      EXPECT_EQ(answer.result, 0) << request.type << ": " << answer.errmsg;
      Judge(answer, request);
    }
    for (const auto& [aliases, result] :
         {std::pair(&kept_, 0), std::pair(&dropped_, 30)}) {
      for (const std::string& alias : *aliases) {
        const Answer answer =
            client.Ask("cmd-pbcmd",
                       Book("perget", "rcmd=pbc-alias\npbkey=" + alias + "\n"));
        EXPECT_EQ(answer.result, result) << alias << ": " << answer.errmsg;
      }
    }
    const Exit end = support::RunProgram(
        KRTCTL_PATH,
        {"--root", root().path(), "--spool", client.spool(), "check", "-q"});
    EXPECT_EQ(end.out.find("pbper"), end.out.npos) << end.out;
    // What was begun and failed is gone.
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(root().path())) {
      const std::string name = entry.path().filename();
      EXPECT_TRUE(name.find(".new") == name.npos && !name.ends_with(".tmp"))
          << entry.path();
    }
  }

  const std::string user_ = Kut_get_usrname();
  SmallDisk disk_{"size=3m,nr_inodes=400"};
  std::optional<SampleRoot> root_;
  std::optional<FifoReader> queueing_;
  int persons_ = 0, done_ = 0, refused_ = 0;
  std::set<std::string> errors_;
  std::vector<std::string> kept_, dropped_;  // aliases, by the answer
};
INSTANTIATE_TEST_SUITE_P(Modes, FullDisk,
                         testing::Values(Mode{"0", false}, Mode{"1", false},
                                         Mode{"0", true}, Mode{"1", true}),
                         [](const auto& mode) { return mode.param.Name(); });

// The exchange itself has room: every command is answered at once.
TEST_P(FullDisk, UnderTheRootGivesClearErrors) {
  const TempDir spool;
  queueing_.emplace(spool / "kfifo");
  DaemonProcess daemon(KRTCMD_PATH, root(),
                       {"-N", GetParam().daemons, "-d", spool.path()});
  SpoolClient client(spool.path(), user_);
  ASSERT_EQ(client.Ask("cmd-pbcmd", Book("create")).result, 0);
  ExpectNormalService(client);
  for (int round = 0; round < 2; ++round) {
    Fill();
    refused_ = 0;
    for (int n = 0; n < 120; ++n) {
      const Request request = Next(n);
      Judge(Ask(client, request), request);
    }
    EXPECT_GE(refused_, 40) << round;
    disk_.MakeRoom();
    ExpectNormalService(client);
  }
  // A full book needs no further names.
  std::set<std::string> errors = {
      "cmd-sendfax: 13, Cannot queue cmd: No space left on device",
      "cmd-setcfg: 11, Cannot set config"};
  if (!GetParam().names) errors.insert("cmd-pbcmd: 29, C-Tree error");
  EXPECT_EQ(errors_, errors);
  EXPECT_EQ(daemon.Stop(), 0);
}

// The answers find no room either: they come when there is some.
TEST_P(FullDisk, UnderTheSpoolHoldsAnswersBack) {
  queueing_.emplace(root().spool() / "kfifo");
  DaemonProcess daemon(
      KRTCMD_PATH, root(),
      {"-N", GetParam().daemons, "-w", "1", "-r", "1000", "-M", "50"});
  SpoolClient client(root().spool(), user_);
  ASSERT_EQ(client.Ask("cmd-pbcmd", Book("create")).result, 0);
  ExpectNormalService(client);
  std::map<std::string, Request> requests;
  for (int n = 0; n < 40; ++n) {
    const Request request = Next(n);
    requests[client.Prepare(request.type, request.more)] = request;
  }
  Fill();
  client.Release();
  // Taken, read and gone: but for the answers, they are done.
  EXPECT_TRUE(Eventually([&] {
    const auto names = root().SpoolNames();
    return std::all_of(names.begin(), names.end(), [](const auto& name) {
      return name == "kfifo" || name.ends_with(".tmp");
    });
  }));
  const Exit check = support::RunProgram(
      KRTCTL_PATH, {"--root", root().path(), "check", "-q", "--offline"});
  EXPECT_NE(check.out.find("make room"), check.out.npos) << check.out;
  const auto take = [&] {
    for (const Answer& answer : Take(client)) {
      Judge(answer, requests[answer.name]);
    }
    return client.open().empty();
  };
  // Nothing comes, not even in part, as often as it is tried.
  EXPECT_FALSE(Eventually(take, milliseconds(1500)));
  EXPECT_GE(client.open().size(), 30U);
  disk_.MakeRoom();
  EXPECT_TRUE(Eventually(take, std::chrono::seconds(40)));
  ExpectNormalService(client);
  EXPECT_EQ(daemon.Stop(), 0);
}

}  // namespace
}  // namespace endurance
