#include "simulator/envelope.h"

#include <algorithm>
#include <climits>
#include <utility>

#include "faxserver/fsfile.h"
#include "faxserver/fshdr.h"

namespace sim {
namespace {

bool IsFlat(kx_object* env) { return Kfx_Is_Obj_Type(env, "obj-senv") != 0; }

// The envelope for this destination alone.
kx::Object ForDestination(kx_object* env, kx_object* destination) {
  kx::Object copy(Kfx_Copy_Obj(env));
  kx::Object element(Kfx_Copy_Obj(destination));
  kx::ListBuilder list;
  if (copy == nullptr || element == nullptr ||
      !list.Append(std::move(element)) ||
      kx::SetChild(copy.get(), "destptr", list.Take()) != 0) {
    return nullptr;
  }
  return copy;
}

// The pages of one file; -1 when it cannot be read.
int PagesOfFile(const std::string& path) {
  // The name is the client's: a fifo in its place must not hold us.
  const UniqueFd fd =
      fx_open_file(AT_FDCWD, path.c_str(), fx_links::kRefuse, nullptr);
  if (!fd.valid()) return -1;
  fx_faxhdr header;
  const ssize_t got =
      Kut_read_full(fd.get(), header.bytes, sizeof header.bytes);
  // A text or a picture: how many pages it makes, only a converter could say.
  if (got != sizeof header.bytes || !fx_fix_faxhdr(&header)) return 1;
  return std::max<int>(fx_faxhdr_pages(&header), 1);
}

}  // namespace

bool IsEnvelope(kx_object* object) {
  return object != nullptr &&
         (IsFlat(object) || Kfx_Is_Obj_Type(object, "obj-env") != 0);
}

std::vector<kx::Object> SplitByDestination(kx_object* env) {
  std::vector<kx::Object> envelopes;
  if (IsFlat(env)) {
    envelopes.emplace_back(Kfx_Copy_Obj(env));
  } else {
    for (kx_object* destination : kx::Elements(kx::Child(env, "destptr"))) {
      if (Kfx_Is_Obj_Type(destination, "obj-dest") == 0) continue;
      envelopes.push_back(ForDestination(env, destination));
    }
  }
  // Without memory there is none rather than some.
  for (const kx::Object& one : envelopes) {
    if (one == nullptr) return {};
  }
  return envelopes;
}

std::vector<std::string> FilesOf(kx_object* env) {
  std::vector<std::string> files;
  const auto add = [&](kx_object* holder) {
    const char* path = kx::Text(holder, "pathname");
    if (path != nullptr) files.emplace_back(path);
  };
  if (IsFlat(env)) {
    add(env);
  } else {
    for (kx_object* file : kx::Elements(kx::Child(env, "fileptr"))) add(file);
  }
  return files;
}

int CountPages(kx_object* env, std::string* bad) {
  int total = kx::Text(env, "coverpage") != nullptr ? 1 : 0;
  for (const std::string& path : FilesOf(env)) {
    const int pages = PagesOfFile(path);
    if (pages < 0) {
      *bad = path;
      return -1;
    }
    // The log and the header count in 16 bits.
    total = std::min(total + pages, SHRT_MAX);
  }
  return std::max(total, 1);
}

}  // namespace sim
