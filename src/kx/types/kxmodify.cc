// "obj-modify": a change of a request.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"reqidptr", kx_typ_obj},
    {"envptr", kx_typ_obj},
};

}  // namespace

KX_DEFINE_TYPE(modify, kRows)
