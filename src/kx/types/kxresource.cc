// "obj-resource": one named resource of the server.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"rname", kx_typ_pstr, 16},
    {"rdesc", kx_typ_str, 64},
};

}  // namespace

KX_DEFINE_TYPE(resource, kRows)
