// File types, told by the extension of a name.
#ifndef CM_CMFILTP_H_
#define CM_CMFILTP_H_

#include <span>

// "tif", "ps", "pcl" or "fax" for exactly that extension, else "txt". Sets
// kx_errno to 0.
const char* cm_filetype(const char* path);

// All five types with what they stand for.
struct cm_filetype_row {
  const char* name;
  const char* desc;
};
std::span<const cm_filetype_row> cm_filetypes();

#endif  // CM_CMFILTP_H_
