// "obj-monitor": whose calls a user's clients show.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"clientid", kx_typ_str, 16},
    {"montype", kx_typ_enum},
    {"names", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(monitor, kRows)
