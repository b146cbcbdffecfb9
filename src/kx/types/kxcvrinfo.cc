// "obj-cvrinfo": a cover page and the tags that it can be filled with.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"coverpage", kx_typ_pstr, 16},
    {"filetype", kx_typ_pstr, 16},
    {"cvrdesc", kx_typ_str, 64},
    {"cvrtags", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(cvrinfo, kRows)
