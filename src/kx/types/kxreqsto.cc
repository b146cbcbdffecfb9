// "obj-reqsto": a request to store a fax file.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"finfoptr", kx_typ_obj},
    {"filobjptr", kx_typ_obj},
};

}  // namespace

KX_DEFINE_TYPE(reqsto, kRows)
