// "obj-servmsg": a message of the server to its clients.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"servcode", kx_typ_enum},
    {"text", kx_typ_str, 256},
};

}  // namespace

KX_DEFINE_TYPE(servmsg, kRows)
