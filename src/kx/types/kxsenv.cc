// "obj-senv": a send envelope in one flat record.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"pathname", kx_typ_path, 256, kx_carries::kFile},
    {"filetype", kx_typ_pstr, 16},
    {"groupname", kx_typ_pstr, 16},
    {"toname", kx_typ_str, 64},
    {"tocomp", kx_typ_str, 64},
    {"tofnum", kx_typ_rstr, 64},
    {"tovnum", kx_typ_rstr, 64},
    {"frname", kx_typ_str, 64},
    {"frcomp", kx_typ_str, 64},
    {"frfnum", kx_typ_rstr, 64},
    {"frvnum", kx_typ_rstr, 64},
    {"subject", kx_typ_str, 64},
    {"coverpage", kx_typ_pstr, 16},
    {"priority", kx_typ_pstr, 16},
    {"mailaddr", kx_typ_str, 64},
    {"notify", kx_typ_enum},
    {"sendres", kx_typ_pstr, 16},
};

}  // namespace

KX_DEFINE_TYPE(senv, kRows)
