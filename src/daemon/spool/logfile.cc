#include "daemon/spool/logfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "util/kutfile.h"
#include "util/kutio.h"
#include "util/kutstr.h"

namespace {

constexpr char kSeparator[] = "--------------------------\n";
constexpr int kPrefixMax = 64;  // pid, time stamp and newline

struct Log {
  int fd = -1;  // -1: no log
  bool owned = false;
  bool debug = false;
  // Seconds east of UTC. Written by ordinary lines only, for the handlers,
  // which must not ask the C library for local time (it takes locks).
  long utc_offset = 0;
};
constinit Log g_log;

// One line under construction; what does not fit is dropped.
class Line {
 public:
  // Much of a message is what clients sent: it must neither end the line nor
  // command the terminal that shows it.
  void Text(const char* text) {
    char shown[kKutEscapeSize];
    while (*text != '\0' && size_ < kPrefixMax + kLogMessageMax) {
      text += Kut_escape_char(text, shown);
      for (const char* c = shown; *c != '\0'; ++c) text_[size_++] = *c;
    }
  }
  // A decimal number of at least `width` digits.
  void Number(long value, int width) {
    char digits[24];
    int n = 0;
    for (; value != 0 || n < width; value /= 10) {
      digits[n++] = static_cast<char>('0' + value % 10);
    }
    while (n > 0) text_[size_++] = digits[--n];
  }
  void Char(char c) { text_[size_++] = c; }
  void WriteTo(int fd) {
    text_[size_++] = '\n';
    static_cast<void>(Kut_write_full(fd, text_, static_cast<size_t>(size_)));
  }

 private:
  char text_[kPrefixMax + kLogMessageMax + 2 * kKutEscapeSize];
  int size_ = 0;
};

struct Date {
  long year, month, day;
};

// The date of a day counted from 1970-01-01, by the calendar's 400-year cycle:
// gmtime() must not be called from a handler either.
Date DateOf(long days) {
  days += 719468;  // from 0000-03-01 on, so that a leap day ends a year
  const long era = days / 146097;
  const long day_of_era = days % 146097;
  const long year_of_era = (day_of_era - day_of_era / 1460 +
                            day_of_era / 36524 - day_of_era / 146096) /
                           365;
  const long day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const long shifted_month = (5 * day_of_year + 2) / 153;
  const long day = day_of_year - (153 * shifted_month + 2) / 5 + 1;
  const long month = shifted_month < 10 ? shifted_month + 3 : shifted_month - 9;
  const long year = year_of_era + era * 400 + (month <= 2 ? 1 : 0);
  return {year, month, day};
}

void Stamp(Line& line) {
  const long now = static_cast<long>(time(nullptr)) + g_log.utc_offset;
  const Date date = DateOf(now / 86400);
  const long second = now % 86400;
  line.Number(date.year - 1900, 2);
  line.Char('/');
  line.Number(date.month, 2);
  line.Char('/');
  line.Number(date.day, 2);
  line.Char(' ');
  line.Number(second / 3600, 2);
  line.Char(':');
  line.Number(second / 60 % 60, 2);
  line.Char(':');
  line.Number(second % 60, 2);
  line.Text(": ");
}

void NoteUtcOffset() {
  const time_t now = time(nullptr);
  tm local{};
  if (localtime_r(&now, &local) != nullptr) g_log.utc_offset = local.tm_gmtoff;
}

void UseLog(int fd, bool owned, int debug) {
  dmn_log_close();
  g_log.fd = fd;
  g_log.owned = owned;
  g_log.debug = debug != 0;
  NoteUtcOffset();
}

// The name of an aged copy.
std::string AgedName(const std::string& base, int number, const char* ext) {
  std::string name = base + "-" + std::to_string(number);
  return *ext != '\0' ? name + "." + ext : name;
}

}  // namespace

int dmn_log_open(const char* path, int to_stderr, int debug) {
  const int fd =
      to_stderr != 0
          ? fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)
          : Kut_open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0666);
  if (fd < 0) return -1;
  UseLog(fd, true, debug);
  return fd;
}

int dmn_log_reopen(int fd, int debug) {
  if (fd < 0) {
    UseLog(STDERR_FILENO, false, debug);
    return 0;
  }
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0) return -1;
  if ((flags & O_ACCMODE) == O_RDONLY) {
    errno = EBADF;
    return -1;
  }
  if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) return -1;
  UseLog(fd, true, debug);
  return 0;
}

void dmn_log_close() {
  const int fd = g_log.fd;
  const bool owned = g_log.owned;
  g_log.fd = -1;  // before the close: a handler may log at any moment
  g_log.owned = false;
  if (owned) close(fd);
}

void dmn_log_write(const char* msg) {
  if (g_log.fd < 0) return;
  NoteUtcOffset();
  dmn_log_pieces({msg});
}

void dmn_log_writed(const char* msg) {
  if (g_log.debug) dmn_log_write(msg);
}

void dmn_logf(const char* format, ...) {
  char msg[kLogMessageMax + 1];
  va_list args;
  va_start(args, format);
  vsnprintf(msg, sizeof msg, format, args);
  va_end(args);
  dmn_log_write(msg);
}

void dmn_log_pieces(std::initializer_list<const char*> pieces) {
  const int fd = g_log.fd;
  if (fd < 0) return;
  const int saved = errno;
  Line line;
  if (g_log.debug) {
    line.Number(getpid(), 1);
    line.Char(':');
  }
  Stamp(line);
  for (const char* piece : pieces) line.Text(piece);
  line.WriteTo(fd);
  errno = saved;
}

void dmn_log_separator() {
  if (g_log.fd < 0) return;
  static_cast<void>(
      Kut_write_full(g_log.fd, kSeparator, sizeof kSeparator - 1));
}

int dmn_log_age(const char* path, int n) {
  const char* found = Kut_get_file_ext(path);
  const char* ext = found != nullptr ? found : "";
  std::string base(path);
  if (found != nullptr) base.resize(base.size() - strlen(ext) - 1);

  Kut_delete_file(AgedName(base, n, ext).c_str());
  for (int i = n - 1; i >= 0; --i) {
    const std::string newer = AgedName(base, i, ext);
    const std::string older = AgedName(base, i + 1, ext);
    if (Kut_is_reg_file(newer.c_str()) == 0) continue;
    Kut_delete_file(older.c_str());
    Kut_rename_file(newer.c_str(), older.c_str());
  }
  return Kut_rename_file(path, AgedName(base, 0, ext).c_str());
}
