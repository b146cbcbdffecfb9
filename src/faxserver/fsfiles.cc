#include "faxserver/fsfiles.h"

#include <unistd.h>

#include <cstdio>

#include "cm/cmpaths.h"
#include "util/kutfile.h"

namespace {

constexpr int kLastTry = 998;

using Name = char[kCmPathSize];

const char* WholeOrEmpty(Name& out, int length) {
  if (length < 0 || static_cast<size_t>(length) >= sizeof out) out[0] = '\0';
  return out;
}

const char* NumberedFax(Name& out, const char* dir, const char* prefix,
                        long seqno) {
  return WholeOrEmpty(
      out, snprintf(out, sizeof out, "%s/%s%ld.fax", dir, prefix, seqno));
}

const char* FreeFax(Name& out, const char* dir, const char* prefix) {
  for (int n = 0; n <= kLastTry; ++n) {
    const int length = snprintf(out, sizeof out, "%s/%s%d-%d.fax", dir, prefix,
                                static_cast<int>(getpid()), n);
    WholeOrEmpty(out, length);
    if (Kut_is_reg_file(out) == 0) break;
  }
  return out;
}

}  // namespace

const char* fx_freq_file(const char* root, long seqno, int expired) {
  static Name name;
  const char* dir =
      expired != 0 ? cm_get_expired_dir(root) : cm_get_requests_dir(root);
  const char* prefix = expired != 0 ? "x-" : "r-";
  return WholeOrEmpty(
      name, snprintf(name, sizeof name, "%s/%s%ld", dir, prefix, seqno));
}

const char* fx_fax_file(const char* root, long seqno) {
  static Name name;
  return NumberedFax(name, cm_get_temp_dir(root), "f-", seqno);
}

const char* fx_cvr_file(const char* root, long seqno) {
  static Name name;
  return NumberedFax(name, cm_get_temp_dir(root), "c-", seqno);
}

const char* fx_fax_tmp_file(const char* root) {
  static Name name;
  return FreeFax(name, cm_get_temp_dir(root), "f-");
}

const char* fx_cvr_tmp_file(const char* root) {
  static Name name;
  return FreeFax(name, cm_get_temp_dir(root), "c-");
}
