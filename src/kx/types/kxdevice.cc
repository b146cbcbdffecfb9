// "obj-device": the state of one fax device.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"destname", kx_typ_str, 16}, {"destdesc", kx_typ_str, 64},
    {"fim", kx_typ_str, 16},      {"esince", kx_typ_time},
    {"rsince", kx_typ_time},      {"enabled", kx_typ_bool},
    {"recving", kx_typ_bool},     {"devstate", kx_typ_str, 64},
    {"ereason", kx_typ_str, 64},  {"rreason", kx_typ_str, 64},
    {"device", kx_typ_path, 256}, {"rnp", kx_typ_path, 256},
};

}  // namespace

KX_DEFINE_TYPE(device, kRows)
