// Allocation in library code: one convention for every site whose failure
// the library reports (ONDREL_E_NOMEM, a null handle, a "stays empty" rule).
//
// Each helper here gives null or false on failure and never throws, so a
// caller checks one thing and maps it to its status:
//
//   NewObject<T>(args...)  one object, released with delete
//   NewArray<T>(n)         n value-initialised (zeroed) elements, delete[]
//   AllocBlock<T>(n)       n zeroed elements as a plain block, std::free;
//                          for blocks that C code allocates alongside or
//                          that leave the library to be freed by the caller
//   TryAllocating(fn)      runs fn, which sizes standard containers or
//                          builds objects that do; false if that ran out of
//                          memory. The only place where library code
//                          catches std::bad_alloc.
//
// Library code uses nothing else to allocate where a failure is reported:
// no bare new (std::nothrow), malloc or calloc, and no catch of bad_alloc
// of its own. Allocations whose failure the library deliberately leaves
// unhandled (map nodes, parameter value buffers, expression nodes) keep
// the container's or platform's exception.
#ifndef ONDREL_FRAMEWORK_ALLOC_H
#define ONDREL_FRAMEWORK_ALLOC_H

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace ONDREL2 {

template <class T, class... Args>
T* NewObject(Args&&... args) {
  return new (std::nothrow) T(std::forward<Args>(args)...);
}

template <class T>
T* NewArray(size_t count) {
  return new (std::nothrow) T[count]();
}

// Zeroed like calloc; null for a zero count is allowed by the platform, so
// callers that need a block ask for at least one element.
template <class T>
T* AllocBlock(size_t count) {
  return static_cast<T*>(std::calloc(count, sizeof(T)));
}

template <class Fn>
bool TryAllocating(Fn&& fn) {
  try {
    std::forward<Fn>(fn)();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace ONDREL2

#endif  // ONDREL_FRAMEWORK_ALLOC_H
