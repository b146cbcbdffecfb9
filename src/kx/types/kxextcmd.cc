// "obj-extcmd": an external command and its arguments.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"cmdstr", kx_typ_str, 128},
    {"retobj", kx_typ_bool},
    {"args", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(extcmd, kRows)
