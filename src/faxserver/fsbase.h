// Small things that every unit of this folder uses.
#ifndef FAXSERVER_FSBASE_H_
#define FAXSERVER_FSBASE_H_

#include <cerrno>
#include <cstddef>
#include <new>
#include <utility>

#include "kx/object.h"
#include "util/kuterr.h"
#include "util/kutguard.h"

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

// The result of `body`, a public function's; without memory its failure, with
// that error number.
template <typename Body>
auto fx_guarded(Body body) -> decltype(body()) {
  return Kut_guarded(body, [] {
    kx_errno = kx_err_memory;
    return Kut_failure<decltype(body())>();
  });
}

// Whether the failure of the step before tells nothing about what it looked
// for: an entry that could not be read for want of memory or descriptors must
// not make a list that is shorter and looks whole.
inline bool fx_is_shortage() {
  return kx_errno == kx_err_memory ||
         (kx_errno == kx_err_system && Kut_is_shortage(errno));
}

// An object, and an object's place in a list, for functions that are guarded at
// the edge of the library.
inline kx::Object fx_build(const char* type) {
  kx::Object object = kx::Build(type);
  if (object == nullptr) throw std::bad_alloc();
  return object;
}
inline void fx_append(kx::ListBuilder* list, kx::Object element) {
  if (!list->Append(std::move(element))) throw std::bad_alloc();
}

// Gives an object, or a list, away to a caller that frees it; kx_errno 0.
inline kx_object* fx_give(kx::Object object) {
  kx_errno = kx_err_none;
  return object.release();
}

#endif  // FAXSERVER_FSBASE_H_
