// "obj-faxreq": a fax request as a client lists it.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"seqno", kx_typ_long},       {"clientid", kx_typ_str, 16},
    {"reqtype", kx_typ_enum},     {"gseqno", kx_typ_long},
    {"memno", kx_typ_word},       {"sessionid", kx_typ_long},
    {"reference", kx_typ_word},   {"pseqno", kx_typ_long},
    {"attempt", kx_typ_word},     {"numatts", kx_typ_word},
    {"active", kx_typ_enum},      {"done", kx_typ_bool},
    {"numpgs", kx_typ_word},      {"npages", kx_typ_word},
    {"naks", kx_typ_word},        {"aresult", kx_typ_word},
    {"rresult", kx_typ_word},     {"retry", kx_typ_pstr, 16},
    {"notify", kx_typ_enum},      {"prilevel", kx_typ_word},
    {"stattime", kx_typ_time},    {"submittime", kx_typ_time},
    {"sendtime", kx_typ_time},    {"stime", kx_typ_time},
    {"etime", kx_typ_time},       {"toname", kx_typ_str, 64},
    {"tocomp", kx_typ_str, 64},   {"tofnum", kx_typ_rstr, 64},
    {"toinfo", kx_typ_str, 64},   {"coverpage", kx_typ_pstr, 16},
    {"subject", kx_typ_str, 64},  {"queue", kx_typ_pstr, 16},
    {"sendres", kx_typ_pstr, 16}, {"dialed", kx_typ_rstr, 64},
    {"prefix", kx_typ_str, 12},   {"suffix", kx_typ_str, 12},
    {"tnp", kx_typ_str, 16},      {"tsi", kx_typ_str, 24},
    {"csi", kx_typ_str, 24},      {"mailaddr", kx_typ_str, 64},
    {"ltags", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(faxreq, kRows)
