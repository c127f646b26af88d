#include "package/simd_inflate_library.h"

const char* simd_inflate_soname() { return "libisal.so.2"; }
