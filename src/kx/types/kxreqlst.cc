// "obj-reqlst": a list that a client asks for, and the answer to it.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"listtype", kx_typ_enum},
    {"listid", kx_typ_str, 16},
    {"listtime", kx_typ_time},
    {"listptr", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(reqlst, kRows)
