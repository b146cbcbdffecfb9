// "obj-reqprt": a request to print a fax.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"finfoptr", kx_typ_obj},
    {"pinfoptr", kx_typ_obj},
};

}  // namespace

KX_DEFINE_TYPE(reqprt, kRows)
