// "obj-user": a user as an administrator sees it.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"clientid", kx_typ_str, 16}, {"passwd", kx_typ_str, 16},
    {"username", kx_typ_str, 64}, {"usertype", kx_typ_enum},
    {"lastlgn", kx_typ_time},     {"didext", kx_typ_str, 8},
};

}  // namespace

KX_DEFINE_TYPE(user, kRows)
