// The package's compression: one raw deflate stream from the first byte to
// the last (no zlib or gzip framing).
#pragma once

#include <atomic>
#include <cstddef>
#include <string>

#include "compat/file_system.h"
#include "package/inflate_decoder.h"

// How LZCompressor::unpack into an open file decodes.
struct UnpackOptions {
  InflateEngine engine = default_inflate_engine();
  size_t chunkSize = 32768;
  const std::atomic<bool>* stop = nullptr;  // set: writing ends, the result is 1223
  int* writeError = nullptr;                // receives errno of a failed write, else 0
};

class LZCompressor {
 public:
  // Size of the output buffer the decoded stream is written through.
  static constexpr size_t kBufferSize = 32768;

  // Not provided by the installer (packages are built by tools/tpk-build):
  // returns 1 and touches nothing.
  static unsigned pack(const std::u16string& src, const std::u16string& dst);
  // Inflates `src` into `dst` (opened with CREATE_ALWAYS) with the default
  // engine. 0 on success, the open error of either file (a missing source
  // creates no destination), or 13 for a corrupt stream, after which `dst`
  // keeps what was decoded before the fault. A stream that ends early
  // without its end marker is accepted; an empty source gives an empty
  // destination. The source is mapped, never read into memory.
  static unsigned unpack(const std::u16string& src, const std::u16string& dst);
  // The same with a chosen engine and output chunk size (tests, benchmarks).
  static unsigned unpack(const std::u16string& src, const std::u16string& dst, InflateEngine engine,
                         size_t chunkSize = kBufferSize);
  // Inflates `src` into the open `dst` from its current position, which stays
  // open. Besides the codes above: 1013 when `dst` could not take every byte
  // (a full disk), 1223 when the stop flag was raised.
  static unsigned unpack(const std::u16string& src, HANDLE dst, const UnpackOptions& options);
};
