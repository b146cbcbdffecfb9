// "obj-msginfo": which messages a client wants.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"msgtypes", kx_typ_word},
    {"msgtime", kx_typ_time},
};

}  // namespace

KX_DEFINE_TYPE(msginfo, kRows)
