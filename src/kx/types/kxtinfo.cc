// "obj-tinfo": one message file.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"filename", kx_typ_file, 128},
    {"msgtime", kx_typ_time},
};

}  // namespace

KX_DEFINE_TYPE(tinfo, kRows)
