#include "daemon/sxfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "cm/cmlimits.h"
#include "daemon/logfile.h"
#include "daemon/sxspool.h"
#include "kx/kxtext.h"
#include "util/kutdir.h"
#include "util/kuterr.h"
#include "util/kutfile.h"
#include "util/kutio.h"
#include "util/kutstr.h"

namespace {

constexpr std::size_t kStreamBuffer = 16384;  // most exchanges fit in one

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
    std::fclose(file);
    errno = saved;
  }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

Stream OpenStream(UniqueFd fd, const char* mode) {
  Stream stream(fdopen(fd.get(), mode));
  if (stream == nullptr) return stream;
  static_cast<void>(fd.release());
  std::setvbuf(stream.get(), g_buffer, _IOFBF, sizeof g_buffer);
  return stream;
}

int Fail(int error) {
  kx_errno = error;
  return -1;
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
  if (std::strcmp(field->name, "cmdtype") != 0) return -1;
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
    std::snprintf(g_last.excess, sizeof g_last.excess,
                  "Command is larger than %s", cm_limit_text(bytes));
  } else if (budget.memory < 0) {
    std::snprintf(g_last.excess, sizeof g_last.excess,
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
  *unread = cmd == nullptr && (errno == ENOMEM || std::ferror(stream.get()));
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

// ---- Copies ----

// Makes <dir>/save; whether there is one.
bool MakeSaveDir(const char* dir, char* path, std::size_t size) {
  const int length = std::snprintf(path, size, "%s/save", dir);
  return length < static_cast<int>(size) && Kut_make_dir(path) == 0;
}

void SaveCommand(const char* dir, kx_object* cmd) {
  char save[PATH_MAX - kSxNameSize];
  char path[PATH_MAX];
  const char* name = kx_tmp_name(cmd);
  if (name == nullptr || !MakeSaveDir(dir, save, sizeof save)) return;
  std::snprintf(path, sizeof path, "%s/%s.%s", save, name, sx_get_ext(cmd));
  Kfx_Save_Obj(cmd, path);
}

void SaveResponse(const char* dir, kx_object* rsp, const char* name) {
  char save[PATH_MAX - kSxNameSize];
  char path[PATH_MAX];
  if (!MakeSaveDir(dir, save, sizeof save)) return;
  std::snprintf(path, sizeof path, "%s/%s.rsp", save, name);
  if (kx::Number(rsp, "reference") == 0) {
    // Reference 0 is shared by answers that nobody asked for: each has a copy
    // of its own.
    int n = 1;
    do {
      std::snprintf(path, sizeof path, "%s/%s.rsp.%03d", save, name, n++);
    } while (Kut_is_reg_file(path) != 0);
  }
  Kfx_Save_Obj(rsp, path);
}

// ---- Responses ----

// Who this process is. That never changes here, so it is not asked for with
// every exchange.
uid_t Self() {
  static const uid_t uid = geteuid();
  return uid;
}

// Whose the response of that name is to be.
uid_t Receiver(const char* exchange) {
  const bool last = std::strcmp(exchange, g_last.exchange) == 0;
  return last ? g_last.st.st_uid : Self();
}

// Creates the temporary file afresh: one that lies there was left by a process
// that died, or put there as a trap.
UniqueFd CreateTemporary(int dirfd, const char* name, uid_t owner) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  UniqueFd fd(Kut_open_at(dirfd, name, kFlags, 0666));
  if (!fd.valid() && errno == EEXIST && unlinkat(dirfd, name, 0) == 0) {
    fd.reset(Kut_open_at(dirfd, name, kFlags, 0666));
  }
  // The client may be anybody, whatever the umask says, and in a directory with
  // the sticky bit it can only remove what is its own. Only root can give files
  // away; without that the client has its answer all the same.
  if (fd.valid() && owner != Self()) {
    static_cast<void>(fchown(fd.get(), owner, static_cast<gid_t>(-1)) == 0);
  }
  if (fd.valid() && fchmod(fd.get(), 0666) != 0) fd.reset();
  return fd;
}

// Commands whose answers hand on an object that somebody else wrote: the output
// of a user's program, a file in a user's directory, the command's own
// argument. A file name in there must not make the daemon, which may read
// everything, read that file for a client: it stays a name.
constexpr int kHandedOn[] = {kx_cmd_extcmd, kx_cmd_pbcmd, kx_cmd_status,
                             kx_cmd_statatt, kx_cmd_msglist};

int Embeds(kx_object* rsp) {
  const int type = kx::Enum(rsp, "cmdtype");
  return std::ranges::find(kHandedOn, type) == std::end(kHandedOn) ? 1 : 0;
}

// Gives the written response its name. Its client waits for that name alone, so
// a failure that passes is not taken at its word.
void TakeName(int dirfd, const char* temporary, const char* final) {
  for (int tries = 0; tries < 2; ++tries) {
    if (renameat(dirfd, temporary, dirfd, final) == 0) return;
  }
  dmn_logf("Cannot rename response %s to %s: %s", temporary, final,
           Kut_sys_errstr());
}

// A response's stream, and what the files in it may still weigh.
struct Sink {
  FILE* stream;
  long left;
};

// write_pair, which ends a response at a file that is too large. Its size was
// looked at before, but its owner can make it grow for as long as it is read.
int WriteWithin(void* context, const char* name, const char* value, int code) {
  auto* sink = static_cast<Sink*>(context);
  if (code == kx_write_file_data) sink->left -= *value - ' ';
  return sink->left < 0 ? -1 : write_pair(sink->stream, name, value, code);
}

// Writes the whole response to `fd`: 0, or the failing step's result.
int WriteResponse(UniqueFd fd, kx_object* rsp) {
  FILE* stream = OpenStream(std::move(fd), "w").release();
  if (stream == nullptr) return Fail(kx_err_system);
  Sink sink = {stream, cm_limit(cm_limit_id::kFileBytes)};
  const int result = Kfx_Decomp_Obj(rsp, WriteWithin, &sink, Embeds(rsp));
  const int error = kx_errno;
  const bool failed = std::ferror(stream) != 0;
  const bool closed = std::fclose(stream) == 0;
  if (sink.left < 0) {
    errno = EFBIG;
    return Fail(kx_err_system);
  }
  if (result == 0 && (failed || !closed)) return Fail(kx_err_system);
  kx_errno = error;
  return result;
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
    SaveCommand(dir, cmd.get());
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

int sx_rsp(const char* dir, kx_object* rsp, int save) {
  if (!Kfx_Is_Obj_Type(rsp, "obj-cmdrsp")) return -1;
  const char* exchange = kx_tmp_name(rsp);
  if (exchange == nullptr) return -1;
  char temporary[64];
  char final[64];
  std::snprintf(temporary, sizeof temporary, "%s.tmp", exchange);
  std::snprintf(final, sizeof final, "%s.rsp", exchange);
  if (save != 0) SaveResponse(dir, rsp, exchange);

  const int dirfd = spool_fd(dir);
  UniqueFd fd = dirfd >= 0
                    ? CreateTemporary(dirfd, temporary, Receiver(exchange))
                    : UniqueFd();
  if (!fd.valid()) return Fail(kx_err_system);
  const int result = WriteResponse(std::move(fd), rsp);
  if (result == 0) {
    TakeName(dirfd, temporary, final);
  } else {
    const int saved = errno;
    unlinkat(dirfd, temporary, 0);
    errno = saved;
  }
  return result;
}

const char* sx_get_ext(kx_object* cmd) {
  const int type = kx::Enum(cmd, "cmdtype");
  const bool session = type >= kx_cmd_install && type <= kx_cmd_putclnt;
  return session || type == kx_cmd_ismsg ? "net" : "cmd";
}

int read_pair(void* file, char* name, char* value, int mode) {
  return kx_read_line(static_cast<FILE*>(file), &g_slot, name, value, mode);
}

int write_pair(void* file, const char* name, const char* value, int code) {
  auto* stream = static_cast<FILE*>(file);
  switch (code) {
    case kx_write_start:
      return 0;
    case kx_write_stop:
      std::fflush(stream);
      return 0;
    case kx_write_file_begin:
      std::fflush(stream);
      return kx_write_line(stream, name, value);
    default:
      return kx_write_line(stream, name, value);
  }
}
