#include "daemon/spool/sxspool.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "daemon/spool/settings.h"
#include "util/kutfile.h"
#include "util/kutio.h"
#include "util/kutstr.h"
#include "util/kuttime.h"

namespace {

constexpr uint32_t kArrivals = IN_MOVED_TO | IN_CLOSE_WRITE;

char g_path[PATH_MAX] = "";
int g_fd = -1;
bool g_looked = false;  // since it was opened
struct stat g_status;   // of it then
int g_inotify = -1;
int g_watch = -1;  // -1: not watching

void LetGo() {
  spool_unwatch();
  if (g_fd >= 0) close(g_fd);
  g_fd = -1;
  g_looked = false;
}

// Opens the directory. The tree belongs to the fax system's user, who could
// have a daemon that is root work anywhere by a link: below the root directory
// none is followed then.
int OpenDirectory(const char* dir) {
  const size_t length = kfaxdir != nullptr ? strlen(kfaxdir) : 0;
  if (spool_self() != 0 || length == 0 || strncmp(dir, kfaxdir, length) != 0 ||
      dir[length] != '/') {
    return Kut_open(dir, O_PATH | O_DIRECTORY);
  }
  UniqueFd fd(Kut_open(kfaxdir, O_PATH | O_DIRECTORY));
  char name[NAME_MAX + 1];
  for (const char* at = dir + length; fd.valid();) {
    at += strspn(at, "/");
    const size_t part = strcspn(at, "/");
    if (part == 0) break;
    Kut_strcpyz(name, at, std::min(part + 1, sizeof name));
    fd.reset(Kut_open_at(fd.get(), name, O_PATH | O_DIRECTORY | O_NOFOLLOW));
    at += part;
  }
  return fd.release();
}

// Takes all waiting events; whether one tells of a file with the extension, or
// that events were lost.
bool TakeEvents(const char* ext) {
  bool found = false;
  alignas(inotify_event) char events[4096];
  ssize_t size;
  while ((size = read(g_inotify, events, sizeof events)) > 0) {
    for (const char* at = events; at < events + size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      const char* got =
          event->len > 0 ? Kut_get_file_ext(event->name) : nullptr;
      if ((event->mask & IN_Q_OVERFLOW) != 0 ||
          (got != nullptr && strcmp(got, ext) == 0)) {
        found = true;
      }
      at += sizeof(inotify_event) + event->len;
    }
    // One read empties the queue in all but bursts.
    if (size < static_cast<ssize_t>(sizeof events / 2)) break;
  }
  return found;
}

}  // namespace

int spool_fd(const char* dir) {
  if (g_fd >= 0 && strcmp(g_path, dir) == 0) return g_fd;
  if (strlen(dir) >= sizeof g_path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  LetGo();
  g_fd = OpenDirectory(dir);
  Kut_strcpyz(g_path, dir, sizeof g_path);
  return g_fd;
}

int spool_status(const char* dir, struct stat* st) {
  if (spool_fd(dir) < 0) return -1;
  if (!g_looked) return fstat(g_fd, st);
  *st = g_status;
  return 0;
}

void spool_refresh(const struct stat& named) {
  if (g_fd < 0) return;
  struct stat held;
  // A number of links that is 0 tells a removed directory from a new one that
  // was given its inode.
  const bool same = fstat(g_fd, &held) == 0 && held.st_nlink != 0 &&
                    held.st_dev == named.st_dev && held.st_ino == named.st_ino;
  if (!same) return LetGo();
  g_status = held;
  g_looked = true;
}

uid_t spool_self() {
  static const uid_t uid = geteuid();
  return uid;
}

int spool_give(int fd, uid_t owner) {
  if (owner == spool_self()) return 0;
  if (fchown(fd, owner, static_cast<gid_t>(-1)) == 0) return 0;
  return errno == EPERM ? 0 : -1;
}

int spool_fresh_name(const char* base, int length, const char* ext, char* name,
                     size_t size) {
  uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != sizeof number) return -1;
  char end[64];
  const int taken =
      snprintf(end, sizeof end, "-%016" PRIx64 ".%s", number, ext);
  const int room = std::min(static_cast<int>(size) - 1, NAME_MAX) - taken;
  snprintf(name, size, "%.*s%s", std::min(length, room), base, end);
  return 0;
}

int spool_watch(const char* dir) {
  if (g_watch >= 0) return 0;
  if (g_inotify < 0) g_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (g_inotify < 0) return 0;
  g_watch = inotify_add_watch(g_inotify, dir, kArrivals);
  return g_watch >= 0 ? 1 : 0;
}

void spool_unwatch() {
  if (g_watch < 0) return;
  inotify_rm_watch(g_inotify, g_watch);
  g_watch = -1;
}

void spool_wait(const char* ext, int secs, int wake_fd, bool any_signal) {
  const long deadline = Kut_now_ms() + secs * 1000L;
  pollfd fds[2] = {{wake_fd, POLLIN, 0},
                   {g_watch >= 0 ? g_inotify : -1, POLLIN, 0}};
  long left = secs < 0 ? -1 : secs * 1000L;
  for (;;) {
    const int timeout = static_cast<int>(left < INT_MAX ? left : INT_MAX);
    const int ready = poll(fds, 2, timeout);
    if (ready == 0 && (secs < 0 || left <= INT_MAX)) return;
    if (ready < 0 && (errno != EINTR || any_signal)) return;
    if (ready > 0) {
      if (fds[0].revents != 0) return;
      if (fds[1].revents != 0 && TakeEvents(ext)) return;
    }
    if (secs < 0) continue;
    left = deadline - Kut_now_ms();
    if (left <= 0) return;
  }
}
