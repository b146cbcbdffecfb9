#include "faxserver/fsconfig.h"

#include <sys/stat.h>

#include <cerrno>

#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsuser.h"
#include "util/kutdir.h"

kx_object* fx_get_config(const char* root, const char* user) {
  if (!fx_is_valid_user(root, user)) return fx_null(kx_err_user);
  const fx_stream stream =
      fx_open_stream(cm_get_config_file(root, user), fx_links::kRefuse);
  if (stream != nullptr) {
    return fx_read_object(stream.get(), "obj-config").release();
  }
  if (errno != ENOENT) return fx_null(kx_err_system);
  return Kfx_Build_Obj("obj-config");
}

int fx_set_config(const char* root, const char* user, kx_object* config) {
  if (!fx_is_valid_user(root, user)) return fx_fail(kx_err_data);
  if (Kut_make_dir(cm_get_opts_dir(root, user)) != 0) {
    return fx_fail(kx_err_system);
  }
  return Kfx_Save_Obj(config, cm_get_config_file(root, user));
}
