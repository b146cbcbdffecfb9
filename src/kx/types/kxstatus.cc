// "obj-status": the status of one request.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"clientid", kx_typ_str, 16}, {"hostname", kx_typ_str, 64},
    {"seqno", kx_typ_long},       {"reqtype", kx_typ_enum},
    {"gseqno", kx_typ_long},      {"memno", kx_typ_word},
    {"sessionid", kx_typ_long},   {"reference", kx_typ_word},
    {"pseqno", kx_typ_long},      {"active", kx_typ_enum},
    {"attempt", kx_typ_word},     {"numpgs", kx_typ_word},
    {"npages", kx_typ_word},      {"naks", kx_typ_word},
    {"qpos", kx_typ_word},        {"qpages", kx_typ_word},
    {"toname", kx_typ_str, 64},   {"tocomp", kx_typ_str, 64},
    {"tofnum", kx_typ_rstr, 64},  {"toinfo", kx_typ_str, 64},
    {"subject", kx_typ_str, 64},  {"queue", kx_typ_pstr, 16},
    {"sendres", kx_typ_pstr, 16}, {"aresult", kx_typ_word},
    {"rresult", kx_typ_word},     {"dialed", kx_typ_rstr, 64},
    {"tsi", kx_typ_pstr, 24},     {"csi", kx_typ_pstr, 24},
    {"done", kx_typ_bool},        {"stattime", kx_typ_time},
    {"submittime", kx_typ_time},  {"sendtime", kx_typ_time},
    {"stime", kx_typ_time},       {"etime", kx_typ_time},
    {"ltags", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(status, kRows)
