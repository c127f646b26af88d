// The SIMD inflate library, loaded when the program first needs it (dlopen
// of its soname) rather than linked: a machine without it still runs the
// installer, and zlib then decodes everything.
#pragma once

#include <cstdint>

struct inflate_state;

struct SimdInflateLibrary {
  void (*init)(inflate_state*);
  void (*reset)(inflate_state*);
  int (*setDict)(inflate_state*, uint8_t*, uint32_t);
  int (*inflate)(inflate_state*);
};

// The library's entry points, or null when it cannot be loaded (not
// installed, or built without its headers). Loaded once per process.
const SimdInflateLibrary* simd_inflate_library();

// The soname that is loaded. Defined in its own source file so that a test
// binary can supply another (one that does not exist, to run as on a
// machine without the library).
const char* simd_inflate_soname();
