// The choice of engine. The engines themselves: inflate_zlib.cpp (zlib
// alone) and inflate_blockwise.h (the SIMD engine with zlib beside it).
#include "package/inflate_decoder.h"

#include <algorithm>
#include <climits>

#include "package/inflate_blockwise.h"
#include "package/inflate_engines.h"
#include "package/simd_inflate_library.h"

bool inflate_engine_available(InflateEngine engine) {
  return engine == InflateEngine::kZlib || simd_inflate_library() != nullptr;
}

InflateEngine default_inflate_engine() {
  return simd_inflate_library() ? InflateEngine::kIsal : InflateEngine::kZlib;
}

const char* inflate_engine_name(InflateEngine engine) {
  return engine == InflateEngine::kIsal ? "isa-l" : "zlib";
}

InflateOutcome inflate_stream(const uint8_t* data, uint64_t size, InflateSink& sink,
                              InflateEngine engine, size_t chunkSize) {
  chunkSize = std::clamp<size_t>(chunkSize, 1, UINT_MAX);
#ifdef TPL_HAVE_ISAL
  if (engine == InflateEngine::kIsal) {
    if (const SimdInflateLibrary* lib = simd_inflate_library())
      return inflate_blockwise(*lib, data, size, sink, chunkSize);
  }
#else
  (void)engine;
#endif
  return inflate_with_zlib(data, size, sink, chunkSize);
}
