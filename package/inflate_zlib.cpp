// The reference engine: zlib alone over the whole stream.
#include <zlib.h>

#include <algorithm>
#include <memory>

#include "compat/file_system.h"
#include "package/inflate_engines.h"

namespace {

// The part of the input not yet handed to the engine.
class InputFeed {
 public:
  InputFeed(const uint8_t* data, uint64_t size) : m_data(data), m_size(size) {}
  bool exhausted() const { return m_fed == m_size; }
  // Next slice (empty once everything has been handed out).
  uint32_t next(const uint8_t*& start) {
    start = m_data + m_fed;
    uint64_t slice = std::min(m_size - m_fed, kMaxInflateSlice);
    m_fed += slice;
    return static_cast<uint32_t>(slice);
  }

 private:
  const uint8_t* m_data;
  uint64_t m_size;
  uint64_t m_fed = 0;
};

}  // namespace

InflateOutcome inflate_with_zlib(const uint8_t* data, uint64_t size, InflateSink& sink,
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
