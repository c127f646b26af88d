#include "package/simd_inflate_library.h"

#include <dlfcn.h>

#include <mutex>
#include <type_traits>

#ifdef TPL_HAVE_ISAL
#include <isa-l/igzip_lib.h>
#endif

namespace {

#ifdef TPL_HAVE_ISAL
// The entry points have the types the library's header declares (checked
// without referring to the symbols, which are not linked).
static_assert(std::is_same_v<decltype(SimdInflateLibrary::init), decltype(&isal_inflate_init)>);
static_assert(std::is_same_v<decltype(SimdInflateLibrary::reset), decltype(&isal_inflate_reset)>);
static_assert(
    std::is_same_v<decltype(SimdInflateLibrary::setDict), decltype(&isal_inflate_set_dict)>);
static_assert(std::is_same_v<decltype(SimdInflateLibrary::inflate), decltype(&isal_inflate)>);

template <typename F>
bool bind(void* handle, const char* name, F& slot) {
  slot = reinterpret_cast<F>(dlsym(handle, name));
  return slot != nullptr;
}

bool load(SimdInflateLibrary& lib) {
  // Kept loaded for the rest of the process.
  void* handle = dlopen(simd_inflate_soname(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) return false;
  if (bind(handle, "isal_inflate_init", lib.init) &&
      bind(handle, "isal_inflate_reset", lib.reset) &&
      bind(handle, "isal_inflate_set_dict", lib.setDict) &&
      bind(handle, "isal_inflate", lib.inflate))
    return true;
  dlclose(handle);
  return false;
}
#else
bool load(SimdInflateLibrary&) { return false; }
#endif

}  // namespace

const SimdInflateLibrary* simd_inflate_library() {
  static SimdInflateLibrary lib{};
  static bool loaded = false;
  static std::once_flag once;
  std::call_once(once, [] { loaded = load(lib); });
  return loaded ? &lib : nullptr;
}
