#include "cm/cmfiltp.h"

#include <cstring>

#include "kx/object.h"
#include "util/kutfile.h"

namespace {

// The last row is the type of everything else.
constexpr cm_filetype_row kFileTypes[] = {
    {"tif", "TIFF image"}, {"ps", "PostScript"}, {"pcl", "PCL"},
    {"fax", "fax image"},  {"txt", "text"},
};

}  // namespace

const char* cm_filetype(const char* path) {
  kx_errno = kx_err_none;
  const char* ext = path != nullptr ? Kut_get_file_ext(path) : nullptr;
  if (ext == nullptr) ext = "";
  for (const cm_filetype_row& row : kFileTypes) {
    if (strcmp(row.name, ext) == 0) return row.name;
  }
  return std::end(kFileTypes)[-1].name;
}

std::span<const cm_filetype_row> cm_filetypes() { return kFileTypes; }
