// "obj-pinfo": where a fax is printed, and which pages.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"prtdest", kx_typ_pstr, 16},
    {"pgrange", kx_typ_str, 24},
};

}  // namespace

KX_DEFINE_TYPE(pinfo, kRows)
