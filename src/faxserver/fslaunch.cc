#include "faxserver/fslaunch.h"

#include <sys/wait.h>

#include <string>

#include "faxserver/fsbase.h"
#include "faxserver/fspopen.h"
#include "faxserver/fstags.h"
#include "util/kutproc.h"

namespace {

constexpr int kCannotRun = 1;  // exit status of a child that runs nothing

pid_t Spawn(const char* const* argv, int exec_status) {
  kut_spawn what;
  what.argv = argv;
  what.exec_status = exec_status;
  return Kut_spawn(&what);
}

}  // namespace

int fx_launch(long seqno, const char* root) {
  const char* program = fx_get_tag(root, "tnp");
  if (*program == '\0') return fx_ok();
  const std::string number = std::to_string(seqno);
  const char* const direct[] = {program, number.c_str(), nullptr};
  const char* const script[] = {"/bin/sh", program, number.c_str(), nullptr};

  const fx_child_guard guard;
  pid_t child = Spawn(direct, 0);
  if (child < 0) child = Spawn(script, kCannotRun);
  int status = 0;
  if (child < 0 || Kut_wait_child(child, &status) < 0) {
    return fx_fail(kx_err_system);
  }
  fx_ok();
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
