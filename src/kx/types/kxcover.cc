// "obj-cover": the sender and the cover page of a fax.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"frname", kx_typ_str, 64},
    {"frcomp", kx_typ_str, 64},
    {"frfnum", kx_typ_rstr, 64},
    {"frvnum", kx_typ_rstr, 64},
    {"areacode", kx_typ_rstr, 64},
    {"subject", kx_typ_str, 64},
    {"coverpage", kx_typ_pstr, 16},
    {"notefile", kx_typ_path, 256, kx_carries::kFile},
};

}  // namespace

KX_DEFINE_TYPE(cover, kRows)
