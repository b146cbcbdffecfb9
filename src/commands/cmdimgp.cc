// "cmd-imgprint"
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "cm/cmkrt.h"
#include "cm/cmlimits.h"
#include "cm/cmpaths.h"
#include "commands/cmdargs.h"
#include "commands/cmdresult.h"
#include "commands/handlers.h"
#include "daemon/spool/settings.h"
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
  cm_folder dir;
  std::string exchange;
  std::string name() const { return exchange + ".tmp"; }
  std::string message() const { return exchange + ".msg"; }
};

// The path of the image, or "" when there can be none. That a plain name does
// not exist is the print program's to say; but a link or a fifo is no image.
std::string ImagePath(kx_object* info) {
  const char* user = kx::TextOrEmpty(info, "clientid");
  const char* name = kx::TextOrEmpty(info, "filename");
  if (!cmd_is_fax_name(name)) return "";
  const cm_folder queue = cmd_open_queue(user);
  const FileIdentity owner = queue.Enter();
  struct stat st;
  const bool there = queue.valid() && owner.held() &&
                     fstatat(queue.fd(), name, &st, AT_SYMLINK_NOFOLLOW) == 0;
  if (there && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) return "";
  return cm_join_plain(cm_get_user_dir(kfaxdir, user), name).text;
}

void RemoveErrors(const ErrorFile& errors) {
  cmd_delete_file(errors.dir, errors.name().c_str());
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
  RemoveErrors(errors);
  const std::string command = "krtprint " +
                              fx_shell_word((image + "/").c_str()) + " 2> " +
                              fx_shell_word(path.text);
  const std::string name = errors.name();
  const int status = fx_run_as(user, command.c_str(),
                               {errors.dir.fd(), name.c_str()}, why_ended);
  return status == 0 && why_ended->empty();
}

// The error file's first line, or "".
void ReadFirstLine(int fd, char (&line)[kCmdMessageSize]) {
  const ssize_t got = Kut_pread_full(fd, line, sizeof line - 1, 0);
  line[got > 0 ? got : 0] = '\0';
  line[strcspn(line, "\n")] = '\0';
  Kut_strip(line);
}

// Puts a copy of the error file among the user's messages: the fax system's
// group must be able to read it there, which only root can arrange and only in
// a file that the user cannot get at before.
void KeepMessage(int fd, const ErrorFile& errors) {
  const int fax_group = cm_get_krt_gid();
  const gid_t group =
      fax_group != -1 ? static_cast<gid_t>(fax_group) : errors.dir.owner().gid;
  FileReplacer message;
  if (fx_start_gift(errors.dir, errors.message().c_str(), kMessageMode, group,
                    &message) != 0) {
    return;
  }
  const FileIdentity owner = errors.dir.Enter();
  const long most = cm_limit(cm_limit_id::kProgramErrorBytes);
  // Of what is more than that, the beginning.
  if (owner.held() &&
      (Kut_copy_bytes(fd, message.fd(), most) == 0 || errno == EFBIG)) {
    static_cast<void>(message.Commit());
  } else {
    message.Abandon();
  }
}

// Keeps the failure as a message, and its first line in `line`. The user could
// have put anything in the file's place: only a regular file without a second
// name is taken for it.
void KeepErrors(const ErrorFile& errors, char (&line)[kCmdMessageSize]) {
  struct stat st;
  const UniqueFd fd = cmd_open_file(errors.dir, errors.name().c_str(), &st);
  line[0] = '\0';
  if (fd.valid() && st.st_nlink == 1) {
    ReadFirstLine(fd.get(), line);
    KeepMessage(fd.get(), errors);
    RemoveErrors(errors);
  }
  if (line[0] == '\0') strcpy(line, kFailed);
}

}  // namespace

int process_imgprint(kx_object* cmd, kx_object* rsp) {
  kx_object* info = kx::Child(cmd_argument(cmd), "finfoptr");
  // What is answered to another argument.
  if (Kfx_Is_Obj_Type(info, "obj-faxinfo") == 0) {
    return cmd_fail(rsp, kx_err_command, "Invalid image print command");
  }
  const char* exchange = kx_tmp_name(cmd);
  if (exchange == nullptr) return cmd_fail(rsp, kx_err_failed, kFailed);
  const char* user = cmd_client(cmd);
  const ErrorFile errors = {cmd_open_messages(user), exchange};
  std::string why_ended;
  if (Print(user, ImagePath(info), errors, &why_ended)) {
    RemoveErrors(errors);
    return cmd_succeed(rsp);
  }
  char line[kCmdMessageSize];
  KeepErrors(errors, line);
  return cmd_fail(rsp, kx_err_failed, "%s",
                  why_ended.empty() ? line : why_ended.c_str());
}
