#include "faxserver/fsmkfreq.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <string>

#include "cm/cmpaths.h"
#include "cm/cmprior.h"
#include "cm/cmreso.h"
#include "cm/cmresult.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fsqueue.h"
#include "faxserver/fstags.h"
#include "faxserver/fsuser.h"
#include "util/kutfile.h"
#include "util/kutio.h"

namespace {

constexpr int kDefaultTrys = 3;
constexpr int kDefaultRetryMinutes = 5;
constexpr int kDefaultExpiryHours = 24;

bool Lock(int fd) {
  int result;
  do {
    result = flock(fd, LOCK_EX);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Counts the number in a locked file up. The new number, or -1.
long CountUp(int fd) {
  char text[32] = "";
  const ssize_t got = Kut_pread_full(fd, text, sizeof text - 1, 0);
  if (got < 0) return -1;
  const long last = strtol(text, nullptr, 10);
  const long next = last >= 0 && last < INT_MAX ? last + 1 : 1;
  const std::string line = std::to_string(next) + "\n";
  // The file only grows or keeps its length while it is written, and a reader
  // takes the digits up to the newline.
  if (Kut_pwrite_full(fd, line.data(), line.size(), 0) != 0 ||
      ftruncate(fd, static_cast<off_t>(line.size())) != 0) {
    return -1;
  }
  return next;
}

// A number that no request has, also when the file was lost or set back.
long NextRequest(const char* root) {
  for (;;) {
    const long seqno = fx_next_seqno(cm_get_oseqno_file(root));
    if (seqno < 0 || (access(fx_freq_file(root, seqno, 0), F_OK) != 0 &&
                      access(fx_freq_file(root, seqno, 1), F_OK) != 0)) {
      return seqno;
    }
  }
}

// What the client said, else what the tag table says.
std::string Setting(const char* root, kx_object* env, const char* name) {
  const char* said = kx::Text(env, name);
  return said != nullptr ? said : fx_get_tag(root, name);
}

int NumberTag(const char* root, const char* name, int otherwise) {
  const int number = Kfx_Str_To_Long(fx_get_tag(root, name));
  return number > 0 ? number : otherwise;
}

// False with errno when nobody can tell which queue is the default.
bool SetTexts(const char* root, kx_object* env, kx_object* freq) {
  for (const char* field : {"tofnum", "tsi", "mailaddr", "tnp"}) {
    kx::SetText(freq, field, Setting(root, env, field).c_str());
  }
  std::string queue = Setting(root, env, "queue");
  if (queue.empty()) queue = fx_queue_get_default(root);
  if (queue.empty() && fx_is_shortage()) return false;
  kx::SetText(freq, "queue", queue.c_str());
  const std::string resolution = Setting(root, env, "sendres");
  kx::SetText(freq, "sendres",
              cm_reso_fr_str(resolution.c_str()) != -1 ? resolution.c_str()
                                                       : cm_reso_get_default());
  return true;
}

void SetNumbers(const char* root, kx_object* env, kx_object* freq) {
  const std::string priority = Setting(root, env, "priority");
  const int level =
      cm_prior_fr_str(priority.empty() ? nullptr : priority.c_str());
  kx::SetNumber(freq, "prilevel",
                level != -1 ? level : cm_prior_fr_str(nullptr));
  kx::SetNumber(freq, "attempt", 0);
  kx::SetNumber(freq, "maxtrys", NumberTag(root, "maxtrys", kDefaultTrys));
  kx::SetNumber(freq, "retrymins",
                NumberTag(root, "retrymins", kDefaultRetryMinutes));
  kx::SetNumber(freq, "rresult", kCmRequestQueued);
  const int notify = kx::Enum(env, "notify");
  kx::SetEnum(freq, "notify", notify != -1 ? notify : kx_not_okfail);
  kx::SetEnum(freq, "active", kx_act_ready);
}

void SetTimes(const char* root, kx_object* env, kx_object* freq) {
  const int now = static_cast<int>(time(nullptr));
  int send = kx::Time(env, "sendtime");
  if (send <= 0) send = now;  // also for "now", which is 0
  const int hours = NumberTag(root, "exphours", kDefaultExpiryHours);
  const long expiry = send + 3600L * hours;
  kx::SetTime(freq, "submittime", now);
  kx::SetTime(freq, "sendtime", send);
  kx::SetTime(freq, "exptime",
              expiry < INT_MAX ? static_cast<int>(expiry) : INT_MAX);
}

}  // namespace

long fx_next_seqno(const char* path) {
  return fx_guarded([&]() -> long {
    const UniqueFd fd(Kut_open(path, O_RDWR | O_CREAT, 0664));
    const long next = fd.valid() && Lock(fd.get()) ? CountUp(fd.get()) : -1;
    return next >= 0 ? (fx_ok(), next) : fx_fail(kx_err_system);
  });
}

kx_object* fx_make_freq(const char* root, const char* clientid,
                        kx_object* env) {
  return fx_guarded([&]() -> kx_object* {
    if (!fx_is_valid_user(root, clientid)) return fx_null(kx_err_user);
    if (kx::Text(env, "tofnum") == nullptr) return fx_null(kx_err_data);
    if (!fx_load_tags(root)) return fx_null(kx_err_system);
    kx::Object freq = kx::Build("obj-freq");
    if (freq == nullptr) return nullptr;
    const long seqno = NextRequest(root);
    if (seqno < 0) return nullptr;
    kx::SetNumber(freq.get(), "seqno", static_cast<int>(seqno));
    kx::SetText(freq.get(), "clientid", clientid);
    kx::SetText(freq.get(), "faxpath", fx_fax_file(root, seqno));
    if (kx::Text(env, "coverpage") != nullptr) {
      kx::SetText(freq.get(), "cvrpath", fx_cvr_file(root, seqno));
    }
    if (!SetTexts(root, env, freq.get())) return fx_null(kx_err_system);
    SetNumbers(root, env, freq.get());
    SetTimes(root, env, freq.get());
    return fx_give(std::move(freq));
  });
}
