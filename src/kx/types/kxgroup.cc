// "obj-group": one group of a phone book.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"galias", kx_typ_str, 16},
    {"gdesc", kx_typ_str, 64},
};

}  // namespace

KX_DEFINE_TYPE(group, kRows)
