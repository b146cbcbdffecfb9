// "obj-cvrtag": one tag of a cover page.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"tagname", kx_typ_str, 16}, {"tagtype", kx_typ_enum},
    {"fonttype", kx_typ_enum},   {"fontname", kx_typ_str, 24},
    {"maxlen", kx_typ_word},     {"tagdesc", kx_typ_str, 64},
};

}  // namespace

KX_DEFINE_TYPE(cvrtag, kRows)
