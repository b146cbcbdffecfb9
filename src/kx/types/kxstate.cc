// "obj-state": the state of the whole fax server.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"schedup", kx_typ_bool},  {"defq", kx_typ_str, 16},
    {"devlist", kx_typ_list},  {"queuelist", kx_typ_list},
    {"freqlist", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(state, kRows)
