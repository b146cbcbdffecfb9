#include "endurance/spool_client.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "kx/kxtext.h"
#include "kx/object.h"
#include "support/sample_root.h"

namespace endurance {
namespace {

constexpr int kSessions = 10000;  // numbers in the name of an exchange
// Other clients beside this one, krtctl say, count from 1 on.
constexpr int kFirstReference = 500;

// Where the files of an answer are unpacked.
const std::string& UnpackDir() {
  static const TempDir dir;
  return dir.path();
}

// The one object that the text is; null when it is not just that.
kx::Object Parse(const std::string& text, const char* type) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(
      fmemopen(const_cast<char*>(text.data()), text.size(), "r"), fclose);
  if (file == nullptr) return nullptr;  // of an empty text
  kx_source source = {file.get()};
  kx::Object object(
      Kfx_Comp_Obj(type, kx_read_source, &source, UnpackDir().c_str()));
  // A text that is cut off within its last line can still be read.
  const bool rest = source.slot.full || std::fgetc(file.get()) != EOF;
  if (rest || !text.ends_with(std::string("\nobjend=") + type + "\n")) {
    object.reset();
  }
  return object;
}

void Write(const std::string& path, const std::string& content) {
  const UniqueFd fd(Kut_open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0660));
  if (!fd.valid() ||
      Kut_write_full(fd.get(), content.data(), content.size()) != 0) {
    ADD_FAILURE() << path << ": " << strerror(errno);
  }
}

}  // namespace

std::string Book(const std::string& verb, const std::string& lines) {
  return Argument(
      "obj-pbcom",
      "pbcmd=pbc-" + verb + "\npbtype=pbt-usr\npbmode=pbm-write\n" + lines);
}

std::string Person(const std::string& alias) {
  return Argument("obj-person",
                  "palias=" + alias + "\nlname=Last " + alias + "\n");
}

bool IsWhole(const std::string& text, const char* type) {
  return Parse(text, type) != nullptr;
}

SpoolClient::SpoolClient(std::string spool, std::string user)
    : spool_(std::move(spool)),
      user_(std::move(user)),
      inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (inotify_add_watch(inotify_.get(), spool_.c_str(), IN_MOVED_TO) < 0) {
    ADD_FAILURE() << spool_ << ": " << strerror(errno);
  }
}

std::string SpoolClient::NextName() {
  const int n = sent_++;
  char name[32];
  std::snprintf(name, sizeof name, "%04d-%03d", n % kSessions,
                n / kSessions + kFirstReference);
  return name;
}

std::string SpoolClient::Text(const std::string& type,
                              const std::string& more) const {
  const int n = sent_ - 1;
  return support::Command(type, n % kSessions, n / kSessions + kFirstReference,
                          "clientid=" + user_ + "\n" + more);
}

std::string SpoolClient::Path(const std::string& name, const char* ext) const {
  return spool_ + "/" + name + ext;
}

std::string SpoolClient::Send(const std::string& type,
                              const std::string& more) {
  const std::string name = NextName();
  open_.insert(name);
  Throw(name, Text(type, more));
  return name;
}

void SpoolClient::Throw(const std::string& name,
                        const std::string& content) const {
  Write(Path(name, ".new"), content);
  EXPECT_EQ(rename(Path(name, ".new").c_str(), Path(name, ".cmd").c_str()), 0)
      << name;
}

void SpoolClient::Forsake(const std::string& type, const std::string& more) {
  const std::string name = NextName();
  forsaken_.insert(name);
  Throw(name, Text(type, more));
}

std::string SpoolClient::Prepare(const std::string& type,
                                 const std::string& more) {
  const std::string name = NextName();
  Write(Path(name, ".new"), Text(type, more));
  prepared_.emplace_back(name, Kut_open(Path(name, ".new").c_str(), O_RDONLY));
  return name;
}

void SpoolClient::Release() {
  for (const auto& [name, fd] : prepared_) {
    open_.insert(name);
    EXPECT_EQ(rename(Path(name, ".new").c_str(), Path(name, ".cmd").c_str()), 0)
        << name;
  }
}

Answer SpoolClient::Read(const std::string& name) {
  EXPECT_EQ(open_.erase(name), 1U)
      << name << " was answered twice, or never sent";
  const std::string path = Path(name, ".rsp");
  Answer answer = {name, -1, "", ReadFile(path)};
  const kx::Object object = Parse(answer.text, "obj-cmdrsp");
  EXPECT_NE(object, nullptr) << name << " is not whole:\n" << answer.text;
  if (object != nullptr) {
    char named[32];
    std::snprintf(named, sizeof named, "%04d-%03d",
                  kx::Number(object.get(), "sessionid"),
                  kx::Number(object.get(), "reference"));
    EXPECT_EQ(named, name) << answer.text;
    answer.result = kx::Number(object.get(), "result");
    answer.errmsg = kx::TextOrEmpty(object.get(), "errmsg");
  }
  EXPECT_EQ(unlink(path.c_str()), 0) << path;
  return answer;
}

std::vector<Answer> SpoolClient::Take(std::chrono::milliseconds longest) {
  std::vector<Answer> answers = std::exchange(early_, {});
  if (!answers.empty()) longest = {};
  pollfd ready = {inotify_.get(), POLLIN, 0};
  poll(&ready, 1, static_cast<int>(longest.count()));
  alignas(inotify_event) char events[16384];
  ssize_t size;
  while ((size = read(inotify_.get(), events, sizeof events)) > 0) {
    for (const char* at = events; at < events + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      at += sizeof(inotify_event) + event->len;
      EXPECT_EQ(event->mask & IN_Q_OVERFLOW, 0U) << "answers were missed";
      const std::string file = event->len > 0 ? event->name : "";
      if (!file.ends_with(".rsp")) continue;
      const std::string name = file.substr(0, file.size() - 4);
      const bool others =
          atoi(name.c_str() + name.find('-') + 1) < kFirstReference;
      if (!others && !forsaken_.contains(name)) answers.push_back(Read(name));
    }
  }
  return answers;
}

Answer SpoolClient::Ask(const std::string& type, const std::string& more) {
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  const std::string name = Send(type, more);
  std::vector<Answer> others = std::exchange(early_, {});
  Answer mine = {name, -1, "", "no answer"};
  while (open_.contains(name) && Clock::now() - start < support::kDeadline) {
    for (Answer& answer : Take(std::chrono::milliseconds(100))) {
      (answer.name == name ? mine : others.emplace_back()) = std::move(answer);
    }
  }
  early_ = std::move(others);
  return mine;
}

}  // namespace endurance
