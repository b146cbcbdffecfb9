// "obj-file": one file to be sent or stored.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"pathname", kx_typ_path, 256, kx_carries::kFile},
    {"filetype", kx_typ_pstr, 16},
    {"fileres", kx_typ_pstr, 16},
    {"filesize", kx_typ_long},
    {"filetime", kx_typ_time},
    {"pglength", kx_typ_pstr, 16},
};

}  // namespace

KX_DEFINE_TYPE(file, kRows)
