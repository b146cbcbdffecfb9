#include "daemon/spool/sxfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "cm/cmlimits.h"
#include "daemon/spool/sxsave.h"
#include "daemon/spool/sxspool.h"
#include "kx/kxtext.h"
#include "util/kuterr.h"
#include "util/kutio.h"
#include "util/kutstr.h"

namespace {

constexpr size_t kStreamBuffer = 16384;  // most exchanges fit in one

constinit kx_pair_slot g_slot = {};

// The command read last: itself, for comparison only, since its taker frees it;
// its exchange name; its file's status; its type when the object library
// refused that; and what there was too much of.
struct LastCommand {
  const kx_object* cmd;
  char exchange[32];
  struct stat st;
  char cmdtype[KX_PAIR_SIZE];
  char excess[96];
};
constinit LastCommand g_last = {};

// Streams of this file share one buffer: only one is open at a time, and it
// must not be allocated for every exchange.
char g_buffer[kStreamBuffer];

struct CloseStream {
  void operator()(FILE* file) const {
    const int saved = errno;
    fclose(file);
    errno = saved;
  }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

Stream OpenStream(UniqueFd fd, const char* mode) {
  Stream stream(fdopen(fd.get(), mode));
  if (stream == nullptr) return stream;
  static_cast<void>(fd.release());
  setvbuf(stream.get(), g_buffer, _IOFBF, sizeof g_buffer);
  return stream;
}

// ---- Commands ----

// Opens a claimed command. What is not a regular file was never a command: a
// fifo or a device must not hold or feed the daemon.
UniqueFd OpenClaimed(int dirfd, const char* name, struct stat* st) {
  UniqueFd fd(Kut_open_regular(dirfd, name, O_NOFOLLOW, st));
  if (!fd.valid()) return fd;
  if (st->st_nlink != 1) {
    errno = EMLINK;
    return UniqueFd();
  }
  return fd;
}

// The envelope's type is text to the dispatcher, which answers one that does
// not exist; every other refused value ends the command.
int KeepCmdtype(const kx_fielddef* field, const char* value) {
  if (strcmp(field->name, "cmdtype") != 0) return -1;
  Kut_strcpyz(g_last.cmdtype, value, sizeof g_last.cmdtype);
  return 0;
}

// What a command may take. Of a file that is too large the envelope alone is
// read; how large it is may change meanwhile, so what comes is counted as well.
kx_budget BudgetOf(const struct stat& st) {
  kx_budget budget;
  budget.keep_outermost = true;
  budget.input = cm_limit(cm_limit_id::kCommandBytes);
  budget.memory =
      st.st_size > budget.input ? 0 : cm_limit(cm_limit_id::kObjectBytes);
  return budget;
}

// Keeps what the command takes too much of, "" within its budget.
void KeepExcess(const kx_budget& budget) {
  const long bytes = cm_limit(cm_limit_id::kCommandBytes);
  g_last.excess[0] = '\0';
  if (budget.input < 0 || g_last.st.st_size > bytes) {
    snprintf(g_last.excess, sizeof g_last.excess, "Command is larger than %s",
             cm_limit_text(bytes));
  } else if (budget.memory < 0) {
    snprintf(g_last.excess, sizeof g_last.excess,
             "Command takes more than %s of memory",
             cm_limit_text(cm_limit(cm_limit_id::kObjectBytes)));
  }
}

// Whether there is a command that can be answered by its name.
bool HasName(kx_object* cmd) {
  return cmd != nullptr && kx_tmp_name(cmd) != nullptr;
}

// The command in the file, or null. `unread` is set where the system could not
// give the file's content or keep it in memory, so that nobody knows whether it
// holds a command.
kx::Object ReadCommand(UniqueFd fd, bool* unread) {
  g_slot.full = false;
  g_last.cmdtype[0] = '\0';
  kx::Object cmd;
  const Stream stream = OpenStream(std::move(fd), "r");
  errno = stream != nullptr ? 0 : ENOMEM;
  if (stream != nullptr) {
    kx_budget budget = BudgetOf(g_last.st);
    cmd.reset(kx_comp_object_within(&budget, "obj-cmdrsp", read_pair,
                                    stream.get(), KeepCmdtype));
    KeepExcess(budget);
  }
  // The object library tells every failure to make an object in the same way.
  *unread = cmd == nullptr && (errno == ENOMEM || ferror(stream.get()));
  if (*unread) kx_errno = kx_err_system;
  if (!*unread && *g_last.excess != '\0' && !HasName(cmd.get())) {
    cmd.reset();
    kx_errno = kx_err_system;
    errno = EFBIG;
  }
  return cmd;
}

void Remember(kx_object* cmd) {
  g_last.cmd = cmd;
  const char* exchange = cmd != nullptr ? kx_tmp_name(cmd) : nullptr;
  Kut_strcpyz(g_last.exchange, exchange != nullptr ? exchange : "",
              sizeof g_last.exchange);
}

}  // namespace

int sx_protocol() { return kFileProtocol; }

kx_object* sx_cmd(const char* dir, const char* name, int save) {
  const int dirfd = spool_fd(dir);
  UniqueFd fd = dirfd >= 0 ? OpenClaimed(dirfd, name, &g_last.st) : UniqueFd();
  kx::Object cmd;
  bool unread = !fd.valid() && Kut_is_shortage(errno);
  kx_errno = kx_err_system;
  if (fd.valid()) cmd = ReadCommand(std::move(fd), &unread);
  int error = kx_errno;
  const int saved = errno;
  Remember(nullptr);
  if (unread) return nullptr;
  const bool gone = unlinkat(dirfd, name, 0) == 0;
  if (cmd == nullptr) {
    errno = saved;
  } else if (!gone) {
    // Carried out now, it could be carried out once more from its file.
    cmd.reset();
    error = kx_err_system;
  } else if (save != 0) {
    sx_save_cmd(dirfd, cmd.get(), g_last.st.st_uid);
  }
  Remember(cmd.get());
  kx_errno = error;
  return cmd.release();
}

const char* sx_cmdtype(kx_object* cmd) {
  const char* known = kx::Text(cmd, "cmdtype");
  if (known != nullptr) return known;
  return cmd == g_last.cmd ? g_last.cmdtype : "";
}

const struct stat* sx_cmd_stat(kx_object* cmd) {
  return cmd != nullptr && cmd == g_last.cmd ? &g_last.st : nullptr;
}

const char* sx_cmd_excess(kx_object* cmd) {
  const bool known = cmd != nullptr && cmd == g_last.cmd;
  return known && *g_last.excess != '\0' ? g_last.excess : nullptr;
}

uid_t sx_receiver(kx_object* rsp) {
  const char* exchange = kx_tmp_name(rsp);
  const bool last =
      exchange != nullptr && strcmp(exchange, g_last.exchange) == 0;
  return last ? g_last.st.st_uid : spool_self();
}

const char* sx_get_ext(kx_object* cmd) {
  const int type = kx::Enum(cmd, "cmdtype");
  const bool session = type >= kx_cmd_install && type <= kx_cmd_putclnt;
  return session || type == kx_cmd_ismsg ? "net" : "cmd";
}

int read_pair(void* file, char* name, char* value, int mode) {
  return kx_read_line(static_cast<FILE*>(file), &g_slot, name, value, mode);
}
