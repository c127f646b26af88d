// Raw deflate decoding of a whole in-memory stream into fixed-size output
// chunks. Two engines share one contract; the package reader uses the
// fastest one built in, and the tests hold the engines against each other.
#pragma once

#include <cstddef>
#include <cstdint>

// Bytes of decoded output handed to the sink per step.
constexpr size_t kInflateChunkSize = 32768;

enum class InflateEngine {
  kZlib,  // reference decoder; always built in
  kIsal,  // SIMD decoder; present when its library can be loaded at run time
};

// Receives decoded output in order, `size` bytes at a time (1..chunk size).
class InflateSink {
 public:
  virtual ~InflateSink() = default;
  virtual void write(const uint8_t* data, size_t size) = 0;
};

struct InflateOutcome {
  unsigned code = 0;        // 0, or 13 (invalid data) for a corrupt stream
  bool reachedEnd = false;  // the end-of-stream marker was decoded
  uint64_t written = 0;     // bytes handed to the sink
};

// Whether `engine` can be used on this machine (the SIMD engine needs its
// library, loaded on first use).
bool inflate_engine_available(InflateEngine engine);

// The engine the package reader uses: the SIMD one when present, else zlib.
InflateEngine default_inflate_engine();

// Short name for reports: "zlib" or "isa-l".
const char* inflate_engine_name(InflateEngine engine);

// Decodes the raw deflate stream `data[0, size)` (no zlib or gzip framing,
// 32 KiB window) into `sink`, at most `chunkSize` bytes per write.
// Success (code 0) when the end marker is reached, and also when the input
// runs out before it (whatever decoded so far has been written: a short
// stream is accepted and its consumer judges the result). Bytes after the end
// marker are ignored. Any invalid data gives 13; the sink keeps what it got.
// An empty input is success with no output. An engine that is not present
// falls back to zlib.
InflateOutcome inflate_stream(const uint8_t* data, uint64_t size, InflateSink& sink,
                              InflateEngine engine = default_inflate_engine(),
                              size_t chunkSize = kInflateChunkSize);
