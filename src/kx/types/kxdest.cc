// "obj-dest": one destination of a fax.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"toname", kx_typ_str, 64},  {"tocomp", kx_typ_str, 64},
    {"tofnum", kx_typ_rstr, 64}, {"tovnum", kx_typ_rstr, 64},
    {"toinfo", kx_typ_str, 64},  {"ltags", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(dest, kRows)
