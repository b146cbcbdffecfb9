#include "faxserver/fsmsg.h"

#include <cstring>
#include <utility>

#include "cm/cmlimits.h"
#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfolder.h"
#include "util/kutstr.h"

namespace {

constexpr size_t kLineSize = 256;  // what the field of a line holds

bool AppendLine(kx::ListBuilder* lines, const char* text) {
  kx::Object line = kx::Build("obj-text");
  if (line == nullptr) return false;
  kx::SetText(line.get(), "text", *text != '\0' ? text : " ");
  return lines->Append(std::move(line));
}

// Reads all lines: an error number.
int ReadLines(FILE* stream, kx::ListBuilder* lines) {
  char line[kLineSize];
  bool line_goes_on = false;
  long bytes = 0;
  while (fgets(line, sizeof line, stream) != nullptr) {
    // The newline of a line that just filled the buffer is no line of its own.
    const bool only_its_end = line_goes_on && strcmp(line, "\n") == 0;
    const size_t length = strlen(line);
    line_goes_on = length == sizeof line - 1 && line[sizeof line - 2] != '\n';
    bytes += static_cast<long>(length);
    if (bytes > cm_limit(cm_limit_id::kMessageBytes)) return kx_err_too_long;
    if (only_its_end) continue;
    // A hole's zeros have no length, but they make lines.
    if (lines->count() >= cm_limit(cm_limit_id::kMessageLines)) {
      return kx_err_too_long;
    }
    if (!AppendLine(lines, Kut_strip(line))) return kx_err_memory;
  }
  return ferror(stream) != 0 ? kx_err_system : kx_err_none;
}

}  // namespace

kx_object* fx_tmsg_read(FILE* stream) {
  kx::Object message = kx::Build("obj-msg");
  if (message == nullptr) return nullptr;
  kx::ListBuilder lines;
  const int error = ReadLines(stream, &lines);
  if (error != kx_err_none) return fx_null(error);
  kx::SetChild(message.get(), "lines", lines.Take());
  return fx_give(std::move(message));
}

kx_object* fx_tmsg_load(const char* path) {
  if (strcmp(path, "-") == 0) return fx_tmsg_read(stdin);
  const fx_stream stream = fx_open_stream(path, fx_links::kRefuse);
  if (stream == nullptr) return fx_null(kx_err_system);
  return fx_tmsg_read(stream.get());
}

kx_object* fx_msg_retrieve(const char* root, const char* user,
                           const char* name) {
  const cm_path path = cm_join_plain(cm_get_msgs_dir(root, user), name);
  const fx_stream stream = fx_open_user_stream(root, user, path.text);
  if (stream == nullptr) return fx_null(kx_err_system);
  return fx_tmsg_read(stream.get());
}
