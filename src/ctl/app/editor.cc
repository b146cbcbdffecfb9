#include "ctl/app/editor.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "ctl/app/files.h"
#include "ctl/app/textform.h"
#include "kx/kxobj.h"
#include "util/kutproc.h"

namespace client {
namespace {

// All fields of the object, the unset ones as empty lines to fill in.
std::string FormText(kx_object* obj) {
  std::string text;
  for (const kx_fielddef* f = kx_obj_info(obj)->fields; f->name; ++f) {
    if (f->type == kx_typ_obj || f->type == kx_typ_list ||
        f->type == kx_typ_data) {
      continue;
    }
    text += std::string(f->name) + "=" + kx::TextOrEmpty(obj, f->name) + "\n";
  }
  return text;
}

// A signal that is ignored for the object's life.
class Ignored {
 public:
  explicit Ignored(int sig) : sig_(sig) {
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    sigaction(sig_, &action, &before_);
  }
  ~Ignored() { sigaction(sig_, &before_, nullptr); }
  Ignored(const Ignored&) = delete;
  Ignored& operator=(const Ignored&) = delete;

 private:
  int sig_;
  struct sigaction before_;
};

// The editor is a command line, with options perhaps: the shell splits it.
bool RunEditor(const std::string& path) {
  const char* editor = getenv("VISUAL");
  if (editor == nullptr || *editor == '\0') editor = getenv("EDITOR");
  if (editor == nullptr || *editor == '\0') editor = "vi";
  const std::string command = std::string(editor) + " \"$1\"";
  const char* const argv[] = {"sh", "-c",         command.c_str(),
                              "sh", path.c_str(), nullptr};
  kut_spawn what;
  what.argv = argv;
  for (const int fd : {0, 1, 2}) what.fds[fd] = fd;
  what.die_with_parent = false;  // it has to leave the terminal in order
  // Keys of the terminal that mean something in the editor.
  const Ignored interrupt(SIGINT);
  const Ignored quit(SIGQUIT);
  const pid_t pid = Kut_spawn(&what);
  int status = 0;
  return pid > 0 && Kut_wait_child(pid, &status) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

}  // namespace

bool EditObject(App& app, const char* type, kx::Object* obj) {
  PrivateDir dir;
  if (Status s = dir.Make(TemporaryParent()); !s.ok()) {
    app.Fail("", s);
    return false;
  }
  // In a folder of its own: editors put their copies beside a file, and
  // settings are nobody else's to read.
  const std::string path = dir.path() + "/" + type;
  const std::string before = FormText(obj->get());
  Status s = WriteWhole(path, before);
  while (s.ok()) {
    std::string after;
    if (!RunEditor(path)) {
      s = {krt_refused, "the editor failed; nothing is stored"};
      break;
    }
    if (s = ReadWhole(path, &after); !s.ok()) break;
    if (after == before) {
      app.Note("nothing changed");
      return false;
    }
    // The form is the fields alone; what frames them is not the user's to edit.
    s = ParseObject(after + "objend=" + type + "\n", type, obj);
    if (s.ok()) return true;
    // --yes would say yes for ever to an editor that cannot be talked to.
    if (isatty(STDIN_FILENO) == 0 || app.Has("yes") ||
        !app.Confirm(s.text + ". Edit again?")) {
      break;
    }
    s = {};
  }
  app.Fail("", s);
  return false;
}

}  // namespace client
