// "obj-msg": a text message.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"fromid", kx_typ_str, 16},
    {"toid", kx_typ_str, 16},
    {"hostname", kx_typ_str, 64},
    {"lines", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(msg, kRows)
