// "obj-reqcd": what a client tells and asks at its login.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"clientid", kx_typ_str, 16},
    {"passwd", kx_typ_str, 16},
    {"opasswd", kx_typ_str, 16},
    {"username", kx_typ_str, 64},
    {"altfax", kx_typ_str, 16},
    {"sessionid", kx_typ_long},
    {"majver", kx_typ_word},
    {"minver", kx_typ_word},
    {"actusr", kx_typ_bool},
    {"clntpgmnm", kx_typ_str, 16},
    {"clntpgmid", kx_typ_str, 16},
    {"clntarch", kx_typ_str, 16},
    {"clntpath", kx_typ_path, 256, kx_carries::kFile},
    {"usrmode", kx_typ_enum},
    {"maxfiles", kx_typ_word},
    {"maxdests", kx_typ_word},
    {"localsize", kx_typ_word},
    {"servport", kx_typ_word},
    {"clntport", kx_typ_word},
};

}  // namespace

KX_DEFINE_TYPE(reqcd, kRows)
