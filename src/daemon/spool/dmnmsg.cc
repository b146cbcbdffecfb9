#include "daemon/spool/dmnmsg.h"

#include "faxserver/fsefifo.h"

int dmn_send_msg(const char* root, const char* user, int code) {
  return fx_efifo_send(root, fx_encode_event(user, code));
}
