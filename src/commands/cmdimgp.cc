// "cmd-imgprint"
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "cm/cmkrt.h"
#include "cm/cmpaths.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/settings.h"
#include "faxserver/fsextcmd.h"
#include "faxserver/fspopen.h"
#include "kx/kxobj.h"
#include "util/kutstr.h"
#include "util/kutuser.h"

namespace {

constexpr char kFailed[] = "fxprint cmd failed";
constexpr mode_t kMessageMode = 0666;

// Where the print program's errors go, in the messages directory of the user.
struct ErrorFile {
  UniqueFd dir;
  std::string exchange;
  std::string name() const { return exchange + ".tmp"; }
  std::string message() const { return exchange + ".msg"; }
};

// The path of the image, or "" when there can be none. That a plain name does
// not exist is the print program's to say; but a link or a fifo is no image.
std::string ImagePath(kx_object* info) {
  const char* user = kx::TextOrEmpty(info, "clientid");
  const char* name = kx::TextOrEmpty(info, "filename");
  const cm_path path = cm_join_plain(cm_get_user_dir(kfaxdir, user), name);
  struct stat st;
  const bool there = lstat(path.text, &st) == 0;
  if (there && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) return "";
  return path.text;
}

// Runs the print program as the user; whether it succeeded, and why it was
// ended. The slash behind the image is the program's convention: an image is a
// directory of pages.
bool Print(const char* user, const std::string& image, const ErrorFile& errors,
           std::string* why_ended) {
  const cm_path path =
      cm_join_plain(cm_get_msgs_dir(kfaxdir, user), errors.name().c_str());
  if (image.empty() || !errors.dir.valid() || path.text[0] == '\0') {
    return false;
  }
  // What an earlier print left would pass for this one's errors.
  unlinkat(errors.dir.get(), errors.name().c_str(), 0);
  const std::string command = "krtprint " +
                              fx_shell_word((image + "/").c_str()) + " 2> " +
                              fx_shell_word(path.text);
  const std::string name = errors.name();
  const int status = fx_run_as(user, command.c_str(),
                               {errors.dir.get(), name.c_str()}, why_ended);
  return status == 0 && why_ended->empty();
}

// The error file's first line, or "".
void ReadFirstLine(int fd, char (&line)[kCmdMessageSize]) {
  const ssize_t got = Kut_pread_full(fd, line, sizeof line - 1, 0);
  line[got > 0 ? got : 0] = '\0';
  line[std::strcspn(line, "\n")] = '\0';
  Kut_strip(line);
}

// Puts the failure among the user's messages, and its first line into `line`.
// The user could have put anything in the file's place: only a regular file
// without a second name is taken for it.
void KeepErrors(const char* user, const ErrorFile& errors,
                char (&line)[kCmdMessageSize]) {
  struct stat st;
  const UniqueFd fd =
      cmd_open_file(errors.dir.get(), errors.name().c_str(), &st);
  line[0] = '\0';
  if (fd.valid() && st.st_nlink == 1) {
    ReadFirstLine(fd.get(), line);
    renameat(errors.dir.get(), errors.name().c_str(), errors.dir.get(),
             errors.message().c_str());
    static_cast<void>(fchown(fd.get(),
                             static_cast<uid_t>(Kut_uname_to_uid(user)),
                             static_cast<gid_t>(cm_get_krt_gid())) == 0);
    fchmod(fd.get(), kMessageMode);
  }
  if (line[0] == '\0') std::strcpy(line, kFailed);
}

}  // namespace

int process_imgprint(kx_object* cmd, kx_object* rsp) {
  kx_object* request = cmd_argument(cmd, "obj-reqprt");
  kx_object* info =
      request != nullptr ? kx::Child(request, "finfoptr") : nullptr;
  if (Kfx_Is_Obj_Type(info, "obj-faxinfo") == 0) {
    return cmd_fail(rsp, kx_err_command, "Invalid image print command");
  }
  const char* exchange = kx_tmp_name(cmd);
  if (exchange == nullptr) return cmd_fail(rsp, kx_err_failed, kFailed);
  const char* user = cmd_client(cmd);
  const ErrorFile errors = {cmd_open_messages(user), exchange};
  std::string why_ended;
  if (Print(user, ImagePath(info), errors, &why_ended)) {
    unlinkat(errors.dir.get(), errors.name().c_str(), 0);
    return cmd_succeed(rsp);
  }
  char line[kCmdMessageSize];
  KeepErrors(user, errors, line);
  return cmd_fail(rsp, kx_err_failed, "%s",
                  why_ended.empty() ? line : why_ended.c_str());
}
