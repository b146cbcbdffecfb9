// "obj-connect": a client's connection to the server, kept on the client's
// side.
#include "kx/kxtype.h"

namespace {

constexpr kx::Row kRows[] = {
    {"connected", kx_typ_bool},    {"usrmode", kx_typ_enum},
    {"maxfiles", kx_typ_word},     {"maxdests", kx_typ_word},
    {"localsize", kx_typ_word},    {"clientid", kx_typ_str, 16},
    {"homedir", kx_typ_dir, 256},  {"kfaxdir", kx_typ_dir, 256},
    {"netspool", kx_typ_dir, 256}, {"workdir", kx_typ_dir, 256},
    {"majver", kx_typ_word},       {"minver", kx_typ_word},
    {"clntpgmid", kx_typ_str, 16}, {"actusr", kx_typ_bool},
    {"contype", kx_typ_enum},      {"timeout", kx_typ_word},
    {"callback", kx_typ_data},     {"cbdata", kx_typ_data},
    {"portdata", kx_typ_data},     {"clnthost", kx_typ_str, 64},
    {"clntaddr", kx_typ_data, 64}, {"servhost", kx_typ_str, 64},
    {"servaddr", kx_typ_data, 64}, {"sendrsp", kx_typ_bool},
    {"sessionid", kx_typ_long},    {"reference", kx_typ_word},
    {"altfax", kx_typ_str, 16},    {"srvtime", kx_typ_time},
    {"rtetime", kx_typ_time},      {"faxtime", kx_typ_time},
    {"alttime", kx_typ_time},      {"txttime", kx_typ_time},
    {"evttime", kx_typ_time},      {"pbstime", kx_typ_time},
    {"loginport", kx_typ_word},    {"servport", kx_typ_word},
    {"servsock", kx_typ_word},     {"clntport", kx_typ_word},
    {"clntsock", kx_typ_word},     {"rspqueue", kx_typ_list},
};

}  // namespace

KX_DEFINE_TYPE(connect, kRows)
