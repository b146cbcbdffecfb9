// "obj-text": one line of a message.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"text", kx_typ_str, 256},
};

}  // namespace

KX_DEFINE_TYPE(text, kRows)
