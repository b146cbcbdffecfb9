// "obj-config": a user's own settings, the defaults of what they send.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"notify", kx_typ_enum},        {"retry", kx_typ_pstr, 16},
    {"frname", kx_typ_str, 64},     {"frcomp", kx_typ_str, 64},
    {"frfnum", kx_typ_rstr, 64},    {"frvnum", kx_typ_rstr, 64},
    {"areacode", kx_typ_rstr, 64},  {"tsi", kx_typ_str, 24},
    {"mailaddr", kx_typ_str, 64},   {"queue", kx_typ_pstr, 16},
    {"sendres", kx_typ_pstr, 16},   {"priority", kx_typ_pstr, 16},
    {"coverpage", kx_typ_pstr, 16}, {"tnp", kx_typ_pstr, 16},
};

}  // namespace

KX_DEFINE_TYPE(config, kRows)
