#include "faxserver/fsextcmd.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "cm/cmlimits.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfiles.h"
#include "faxserver/fslog.h"
#include "faxserver/fsmsg.h"
#include "faxserver/fsuser.h"
#include "util/kuterr.h"
#include "util/kutio.h"
#include "util/kutproc.h"
#include "util/kutstr.h"
#include "util/kutuser.h"

namespace {

constexpr char kTemporary[] = "/tmp";
constexpr mode_t kErrorMode = 0600;
constexpr size_t kChunkSize = 64 * 1024;

// The argument vector of an external command; the texts lie in `texts`.
struct Arguments {
  std::vector<std::string> texts;
  std::vector<const char*> argv;
};

// False when there are none or too many.
bool MakeArguments(kx_object* extcmd, Arguments* arguments) {
  std::string line = kx::TextOrEmpty(extcmd, "cmdstr");
  std::vector<char*> words(kFxMaxArgs + 1);
  const int count =
      Kut_awk(line.data(), words.data(), static_cast<int>(words.size()));
  if (count == 0) return false;
  words.resize(static_cast<size_t>(count));
  arguments->texts.assign(words.begin(), words.end());
  for (kx_object* arg : kx::Elements(kx::Child(extcmd, "args"))) {
    if (arguments->texts.size() > kFxMaxArgs) return false;
    arguments->texts.emplace_back(kx::TextOrEmpty(arg, "argstr"));
  }
  if (arguments->texts.size() > kFxMaxArgs) return false;
  for (const std::string& text : arguments->texts) {
    arguments->argv.push_back(text.c_str());
  }
  arguments->argv.push_back(nullptr);
  return true;
}

// A file for the command's error output. It never has a name, or none any more
// when it is opened, so it cannot outlive the command, nor can a stranger who
// guessed the name have put a link there. It is the user's: who opens
// /dev/stderr needs the right to.
UniqueFd OpenErrorFile(const kut_identity* identity) {
  const char* name = fx_tmpname(nullptr, "err");
  UniqueFd fd(Kut_open(kTemporary, O_RDWR | O_TMPFILE, kErrorMode));
  if (!fd.valid()) {  // a file system that cannot
    unlink(name);
    fd.reset(
        Kut_open(name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, kErrorMode));
    if (fd.valid()) unlink(name);
  }
  if (fd.valid() && identity != nullptr &&
      fchown(fd.get(), identity->uid, identity->gid) != 0) {
    fd.reset();
  }
  return fd;
}

// Reads all that the command prints. False with errno.
bool ReadOutput(fx_program* program, std::string* output) {
  char chunk[kChunkSize];
  ssize_t got;
  while ((got = program->Read(chunk, sizeof chunk)) > 0) {
    output->append(chunk, static_cast<size_t>(got));
  }
  return got == 0;
}

// A stream on a text in memory.
fx_stream OpenText(const std::string& text) {
  // The C library opens no empty buffer.
  if (text.empty()) return fx_stream(fopen("/dev/null", "re"));
  return fx_stream(fmemopen(const_cast<char*>(text.data()), text.size(), "r"));
}

std::string Shown(cm_limit_id limit) { return cm_limit_text(cm_limit(limit)); }

// A text message, as the answer to a command that failed.
kx_object* Failure(const std::string& text) {
  const fx_stream stream = OpenText(text);
  if (stream == nullptr) return fx_null(kx_err_system);
  kx_object* message = fx_tmsg_read(stream.get());
  if (message != nullptr) kx_errno = kx_err_failed;
  return message;
}

// Makes a text message of what the command wrote; of more than a message may
// hold, one that says so.
kx_object* MakeText(const std::string& text) {
  const fx_stream stream = OpenText(text);
  if (stream == nullptr) return fx_null(kx_err_system);
  kx_object* message = fx_tmsg_read(stream.get());
  if (message != nullptr || kx_errno == kx_err_memory ||
      kx_errno == kx_err_system) {
    return message;
  }
  return Failure("The program wrote more than " +
                 Shown(cm_limit_id::kMessageLines) + " lines or " +
                 Shown(cm_limit_id::kMessageBytes) + " bytes of text");
}

// Makes an object of what the command printed. Files are neither unpacked nor
// looked for: a path in it is the text that the command printed.
kx_object* MakeObject(const std::string& output) {
  const fx_stream stream = OpenText(output);
  if (stream == nullptr) return fx_null(kx_err_system);
  kx::Object object = fx_read_object(stream.get(), nullptr);
  if (object != nullptr) return fx_give(std::move(object));
  return fx_null(kx_errno == kx_err_memory ? kx_err_memory : kx_err_data);
}

// The error number when there is nobody to run as: by errno.
int NobodyError() {
  return Kut_is_shortage(errno) ? kx_err_system : kx_err_permission;
}

kx_object* MakeErrorText(int fd) {
  // No more than the limit: else it would have been ended for that.
  struct stat st;
  if (fstat(fd, &st) != 0) return fx_null(kx_err_system);
  std::string text(static_cast<size_t>(st.st_size), '\0');
  const ssize_t got = Kut_pread_full(fd, text.data(), text.size(), 0);
  if (got < 0) return fx_null(kx_err_system);
  text.resize(static_cast<size_t>(got));
  kx_object* message = MakeText(text);
  if (message != nullptr) kx_errno = kx_err_failed;
  return message;
}

kx_object* Run(const Arguments& arguments, const kut_identity& identity,
               const kut_identity* run_as, bool is_object) {
  const UniqueFd errors = OpenErrorFile(run_as);
  if (!errors.valid()) return fx_null(kx_err_system);
  kut_spawn what;
  what.argv = arguments.argv.data();
  what.fds[2] = errors.get();
  what.identity = run_as;
  what.exec_status = 1;
  fx_program program;
  std::string output;
  if (!program.Start(what, identity.user, fx_output::kRead,
                     {errors.get(), ""}) ||
      !ReadOutput(&program, &output)) {
    return fx_null(kx_err_system);
  }
  const int status = program.Wait();
  if (!program.why_ended().empty()) {
    fx_logf("%s: %s", arguments.argv[0], program.why_ended().c_str());
    return Failure(program.why_ended());
  }
  if (status != 0) return MakeErrorText(errors.get());
  return is_object ? MakeObject(output) : MakeText(output);
}

}  // namespace

kx_object* fx_extcmd(const char*, const char* user, kx_object* extcmd) {
  return fx_guarded([&]() -> kx_object* {
    Arguments arguments;
    if (!MakeArguments(extcmd, &arguments)) return fx_null(kx_err_data);
    kut_identity identity;
    const kut_identity* run_as;
    if (!fx_get_identity(user, false, &identity, &run_as)) {
      return fx_null(NobodyError());
    }
    return Run(arguments, identity, run_as, kx::Bool(extcmd, "retobj") == 1);
  });
}

int fx_run_as(const char* user, const char* command, fx_watched_file errors,
              std::string* why_ended) {
  return fx_guarded([&]() -> int {
    kut_identity identity;
    const kut_identity* run_as;
    if (!fx_get_identity(user, true, &identity, &run_as)) {
      return fx_fail(NobodyError());
    }
    kut_spawn what;
    what.command = command;
    what.identity = run_as;
    fx_program program;
    if (!program.Start(what, identity.user, fx_output::kDrop, errors)) {
      return fx_fail(kx_err_system);
    }
    const int status = program.Wait();
    if (why_ended != nullptr) *why_ended = program.why_ended();
    fx_ok();
    return status;
  });
}
