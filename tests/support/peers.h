// What stands around the code under test: readers of its fifos, records as
// bytes, other processes.
#ifndef SUPPORT_PEERS_H_
#define SUPPORT_PEERS_H_

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/child.h"
#include "support/objects.h"
#include "support/sample_root.h"
#include "util/kutio.h"

using FaxRoot = support::SampleRoot;

struct FaxTest : testing::Test {
  const FaxRoot root;
};
struct BobTest : FaxTest {
  BobTest() { root.AddUser("bob"); }
};

// A fifo with its reader.
class FifoReader {
 public:
  explicit FifoReader(const std::string& path) {
    mkfifo(path.c_str(), 0600);
    fd_.reset(Kut_open(path.c_str(), O_RDONLY | O_NONBLOCK));
  }
  // All that is in it.
  std::string Take() const {
    char buffer[4096];
    const ssize_t got = read(fd_.get(), buffer, sizeof buffer);
    return got > 0 ? std::string(buffer, static_cast<size_t>(got)) : "";
  }

 private:
  UniqueFd fd_;
};

// What a record holds: a number as a host of either byte order holds it, a text
// in a field of `size` bytes.
template <typename Int>
std::string Bytes(Int value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}
inline std::string Bytes(const std::string& text, size_t size) {
  return text + std::string(size - text.size(), '\0');
}
// A record, or anything else that has bytes, as a text.
template <typename Record>
std::string Text(const Record& record) {
  return std::string(record.begin(), record.end());
}

// A process that has ended and been waited for.
inline pid_t DeadPid() {
  const pid_t pid = BeginChild([] { return 0; });
  Reaped(pid);
  return pid;
}

// A process that does nothing until it is signalled.
class LivePid {
 public:
  LivePid() : pid_(fork()) {
    if (pid_ != 0) return;
    signal(SIGTERM, SIG_DFL);
    for (;;) pause();
  }
  LivePid(const LivePid&) = delete;
  LivePid& operator=(const LivePid&) = delete;
  ~LivePid() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    Wait();
  }
  pid_t get() const { return pid_; }
  // The signal that ended it.
  int Wait() {
    if (pid_ <= 0) return 0;
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

 private:
  pid_t pid_;
};

#endif  // SUPPORT_PEERS_H_
