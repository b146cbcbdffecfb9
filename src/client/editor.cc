#include "client/editor.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "client/files.h"
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

// The editor is a command line, with options perhaps: the shell splits it.
bool RunEditor(const std::string& path) {
  const char* editor = getenv("VISUAL");
  if (editor == nullptr || *editor == '\0') editor = getenv("EDITOR");
  if (editor == nullptr || *editor == '\0') editor = "vi";
  const std::string command = std::string(editor) + " \"$1\"";
  const char* argv[] = {"sh", "-c",         command.c_str(),
                        "sh", path.c_str(), nullptr};
  pid_t pid;
  if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr,
                  const_cast<char* const*>(argv), environ) != 0) {
    return false;
  }
  int status = 0;
  return Kut_wait_child(pid, &status) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

}  // namespace

bool EditObject(App& app, const char* type, kx::Object* obj) {
  PrivateDir dir;
  if (Status s = dir.Make(TemporaryParent()); !s.ok()) {
    app.Fail("", s);
    return false;
  }
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
    s = ParseObject(after + "objend=" + type + "\n", type, obj);
    if (s.ok()) return true;
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
