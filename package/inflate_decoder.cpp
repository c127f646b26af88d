#include "package/inflate_decoder.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <memory>

#ifdef TPL_HAVE_ISAL
#include <isa-l/igzip_lib.h>
#endif

#include "compat/file_system.h"

namespace {

// Both engines take at most 4 GiB - 1 of input per call; a larger mapping
// is fed in slices of this size.
constexpr uint64_t kMaxSlice = UINT_MAX;

// The part of the input not yet handed to the engine.
class InputFeed {
 public:
  InputFeed(const uint8_t* data, uint64_t size) : m_data(data), m_size(size) {}
  bool exhausted() const { return m_fed == m_size; }
  // Next slice (empty once everything has been handed out).
  uint32_t next(const uint8_t*& start) {
    start = m_data + m_fed;
    uint64_t slice = std::min(m_size - m_fed, kMaxSlice);
    m_fed += slice;
    return static_cast<uint32_t>(slice);
  }

 private:
  const uint8_t* m_data;
  uint64_t m_size;
  uint64_t m_fed = 0;
};

InflateOutcome inflate_zlib(const uint8_t* data, uint64_t size, InflateSink& sink,
                            size_t chunkSize) {
  InflateOutcome outcome;
  z_stream zs{};
  if (inflateInit2(&zs, -MAX_WBITS) != Z_OK) {
    outcome.code = ERROR_INVALID_DATA;
    return outcome;
  }
  InputFeed feed(data, size);
  const uint8_t* start = nullptr;
  zs.avail_in = feed.next(start);
  zs.next_in = const_cast<Bytef*>(start);
  auto buffer = std::make_unique<uint8_t[]>(chunkSize);
  for (;;) {
    if (zs.avail_in == 0 && !feed.exhausted()) {
      zs.avail_in = feed.next(start);
      zs.next_in = const_cast<Bytef*>(start);
    }
    zs.next_out = buffer.get();
    zs.avail_out = static_cast<uInt>(chunkSize);
    int result = inflate(&zs, Z_NO_FLUSH);
    bool stuck = false;
    if (result == Z_BUF_ERROR) {
      // No progress possible: a failure while input is left, otherwise the
      // input simply ended before the end marker.
      if (zs.avail_in != 0 || !feed.exhausted())
        stuck = true;
      else
        result = Z_OK;
    }
    size_t produced = chunkSize - zs.avail_out;
    if (produced != 0) {
      sink.write(buffer.get(), produced);
      outcome.written += produced;
    }
    if (stuck || (result != Z_OK && result != Z_STREAM_END)) {
      outcome.code = ERROR_INVALID_DATA;
      break;
    }
    if (result == Z_STREAM_END) {
      outcome.reachedEnd = true;
      break;
    }
    // Room left in the buffer: every byte given so far has been consumed.
    if (zs.avail_out != 0 && feed.exhausted()) break;
  }
  inflateEnd(&zs);
  return outcome;
}

#ifdef TPL_HAVE_ISAL
InflateOutcome inflate_isal(const uint8_t* data, uint64_t size, InflateSink& sink,
                            size_t chunkSize) {
  InflateOutcome outcome;
  auto state = std::make_unique<inflate_state>();
  isal_inflate_init(state.get());
  state->crc_flag = ISAL_DEFLATE;
  state->hist_bits = 0;  // the full 32 KiB window
  InputFeed feed(data, size);
  const uint8_t* start = nullptr;
  state->avail_in = feed.next(start);
  state->next_in = const_cast<uint8_t*>(start);
  auto buffer = std::make_unique<uint8_t[]>(chunkSize);
  for (;;) {
    if (state->avail_in == 0 && !feed.exhausted()) {
      state->avail_in = feed.next(start);
      state->next_in = const_cast<uint8_t*>(start);
    }
    uint32_t inBefore = state->avail_in;
    state->next_out = buffer.get();
    state->avail_out = static_cast<uint32_t>(chunkSize);
    int result = isal_inflate(state.get());
    size_t produced = chunkSize - state->avail_out;
    if (produced != 0) {
      sink.write(buffer.get(), produced);
      outcome.written += produced;
    }
    if (result != ISAL_DECOMP_OK) {
      outcome.code = ERROR_INVALID_DATA;
      break;
    }
    if (state->block_state == ISAL_BLOCK_FINISH) {
      outcome.reachedEnd = true;
      break;
    }
    if (state->avail_out != 0) {
      if (state->avail_in == 0 && feed.exhausted()) break;  // input ended early
      if (state->avail_in == inBefore && produced == 0) {
        // Neither input taken nor output made: nothing more can come.
        outcome.code = ERROR_INVALID_DATA;
        break;
      }
    }
  }
  return outcome;
}
#endif

}  // namespace

bool inflate_engine_available(InflateEngine engine) {
#ifdef TPL_HAVE_ISAL
  (void)engine;
  return true;
#else
  return engine == InflateEngine::kZlib;
#endif
}

InflateEngine default_inflate_engine() {
#ifdef TPL_HAVE_ISAL
  return InflateEngine::kIsal;
#else
  return InflateEngine::kZlib;
#endif
}

const char* inflate_engine_name(InflateEngine engine) {
  return engine == InflateEngine::kIsal ? "isa-l" : "zlib";
}

InflateOutcome inflate_stream(const uint8_t* data, uint64_t size, InflateSink& sink,
                              InflateEngine engine, size_t chunkSize) {
  chunkSize = std::clamp<size_t>(chunkSize, 1, UINT_MAX);
#ifdef TPL_HAVE_ISAL
  if (engine == InflateEngine::kIsal) return inflate_isal(data, size, sink, chunkSize);
#else
  (void)engine;
#endif
  return inflate_zlib(data, size, sink, chunkSize);
}
