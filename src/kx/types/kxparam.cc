// "obj-param": how and when a fax is to be sent.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"sendtime", kx_typ_time},    {"notify", kx_typ_enum},
    {"retry", kx_typ_pstr, 16},   {"priority", kx_typ_pstr, 16},
    {"queue", kx_typ_pstr, 16},   {"groupname", kx_typ_pstr, 16},
    {"mailaddr", kx_typ_str, 64}, {"tnp", kx_typ_pstr, 16},
    {"sendres", kx_typ_pstr, 16}, {"tsi", kx_typ_str, 24},
    {"prefix", kx_typ_str, 12},   {"suffix", kx_typ_str, 12},
};

}  // namespace

KX_DEFINE_TYPE(param, kRows)
