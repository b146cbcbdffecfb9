// Small things that every unit of this folder uses.
#ifndef FAXSERVER_FSBASE_H_
#define FAXSERVER_FSBASE_H_

#include <cstddef>

#include "kx/object.h"

// Set the error number and give the result that goes with it.
inline int fx_ok() {
  kx_errno = kx_err_none;
  return 0;
}
inline int fx_fail(int error) {
  kx_errno = error;
  return -1;
}
inline std::nullptr_t fx_null(int error) {
  kx_errno = error;
  return nullptr;
}

// Gives an object, or a list, away to a caller that frees it; kx_errno 0.
inline kx_object* fx_give(kx::Object object) {
  kx_errno = kx_err_none;
  return object.release();
}

#endif  // FAXSERVER_FSBASE_H_
