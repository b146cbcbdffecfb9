// "obj-route": a fax file and the users between whom it moves.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"fromid", kx_typ_str, 16},
    {"toid", kx_typ_str, 16},
    {"filename", kx_typ_file, 128},
};

}  // namespace

KX_DEFINE_TYPE(route, kRows)
