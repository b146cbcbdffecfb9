// "obj-localtag": one value for a cover page's tag.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"tagname", kx_typ_str, 16},
    {"tagvalue", kx_typ_str, 64},
};

}  // namespace

KX_DEFINE_TYPE(localtag, kRows)
