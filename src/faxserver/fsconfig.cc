#include "faxserver/fsconfig.h"

#include <cerrno>

#include "cm/cmpaths.h"
#include "faxserver/fsbase.h"
#include "faxserver/fsfile.h"
#include "faxserver/fsfolder.h"
#include "faxserver/fsuser.h"
#include "kx/kxtext.h"
#include "util/kutfile.h"

kx_object* fx_get_config(const char* root, const char* user) {
  if (!fx_is_valid_user(root, user)) return fx_null(kx_err_user);
  const fx_stream stream =
      fx_open_user_stream(root, user, cm_get_config_file(root, user));
  if (stream != nullptr) {
    return fx_read_object(stream.get(), "obj-config").release();
  }
  if (errno != ENOENT) return fx_null(kx_err_system);
  return Kfx_Build_Obj("obj-config");
}

int fx_set_config(const char* root, const char* user, kx_object* config) {
  if (!fx_is_valid_user(root, user)) return fx_fail(kx_err_data);
  const char* name = Kut_basename(cm_get_config_file(root, user));
  const cm_folder options = fx_make_options(root, user);
  const FileIdentity owner = options.Enter();
  FileReplacer file;
  if (!owner.held() || fx_replace_in(options, name, &file) != 0 ||
      file.stream() == nullptr) {
    return fx_fail(kx_err_system);
  }
  if (Kfx_Decomp_Obj(config, kx_write_pair_fp, file.stream(), 0) != 0) {
    return -1;
  }
  return file.Commit() == 0 ? fx_ok() : fx_fail(kx_err_system);
}
