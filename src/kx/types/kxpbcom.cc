// "obj-pbcom": a phone-book command, its cursors and its result.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"pbcmd", kx_typ_enum},    {"pbtype", kx_typ_enum},
    {"pbmode", kx_typ_enum},   {"pbsort", kx_typ_enum},
    {"curper", kx_typ_long},   {"curgrp", kx_typ_long},
    {"curmem", kx_typ_long},   {"rcmd", kx_typ_enum},
    {"pbmax", kx_typ_word},    {"pboffset", kx_typ_word},
    {"pbkey", kx_typ_str, 64}, {"pbbeg", kx_typ_str, 64},
    {"pbend", kx_typ_str, 64}, {"galias", kx_typ_str, 16},
    {"objptr", kx_typ_obj},
};

}  // namespace

KX_DEFINE_TYPE(pbcom, kRows)
