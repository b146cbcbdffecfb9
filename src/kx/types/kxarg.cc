// "obj-arg": one argument of an external command.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"ispath", kx_typ_bool},
    {"argstr", kx_typ_str, 256, kx_carries::kFileIfPath},
};

}  // namespace

KX_DEFINE_TYPE(arg, kRows)
