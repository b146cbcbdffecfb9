// "obj-person": one person of a phone book.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"palias", kx_typ_str, 16}, {"lname", kx_typ_str, 32},
    {"fname", kx_typ_str, 32},  {"company", kx_typ_str, 64},
    {"notes", kx_typ_str, 64},  {"fcntry", kx_typ_str, 6},
    {"farea", kx_typ_str, 6},   {"flocal", kx_typ_str, 32},
    {"fext", kx_typ_str, 6},    {"vcntry", kx_typ_str, 6},
    {"varea", kx_typ_str, 6},   {"vlocal", kx_typ_str, 32},
    {"vext", kx_typ_str, 6},    {"pcntry", kx_typ_str, 6},
    {"parea", kx_typ_str, 6},   {"plocal", kx_typ_str, 32},
    {"pext", kx_typ_str, 6},    {"ccntry", kx_typ_str, 6},
    {"carea", kx_typ_str, 6},   {"clocal", kx_typ_str, 32},
    {"cext", kx_typ_str, 6},    {"addr1", kx_typ_str, 40},
    {"addr2", kx_typ_str, 40},  {"city", kx_typ_str, 40},
    {"state", kx_typ_str, 12},  {"country", kx_typ_str, 24},
    {"zip", kx_typ_str, 12},    {"email", kx_typ_str, 64},
    {"info", kx_typ_str, 64},
};

}  // namespace

KX_DEFINE_TYPE(person, kRows)
