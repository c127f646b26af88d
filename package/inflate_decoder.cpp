#include "package/inflate_decoder.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>

#ifdef TPL_HAVE_ISAL
#include <isa-l/igzip_lib.h>
#endif

#include "compat/file_system.h"
#include "package/simd_inflate_library.h"

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
// The SIMD engine decodes the block contents; zlib keeps the last word on
// what is valid, so both engines give the same verdict and the same bytes:
// - a stored block that lies wholly in the input and whose length matches
//   its complement is copied here (nothing in it can be invalid); any
//   other stored block goes to zlib;
// - every other block header is first read by zlib, which stops right
//   after it, so a header zlib refuses is refused at the same point, and a
//   stream cut inside a header ends the same way;
// - blocks with fixed codes (which hold unusable symbols) and blocks with a
//   code of fewer than two symbols (the only incomplete codes zlib accepts)
//   are decoded by zlib, under its rules for unusable codes;
// - every other block goes to the SIMD engine as a stream of its own, with
//   the preceding 32 KiB of output as history and its "last block" bit set,
//   so it stops exactly at the block's end;
// - a block the SIMD engine does not finish (input cut short, or an error)
//   is decoded again by zlib, whose verdict and bytes stand; the output of
//   the SIMD call that failed is never given out (it may hold a match the
//   engine wrote before it found the match invalid);
// - after a small block, zlib runs through the next stretch of blocks in one
//   go, since setting the SIMD engine up per block would cost more than it
//   saves (and a stream of tiny blocks stays as fast as zlib). Measured:
//   about 10 us per block handed to the SIMD engine, two fifths of it the
//   two 32 KiB history copies and most of the rest its table build and
//   zlib's header probe, against about 5.5 ns per byte that the SIMD engine
//   saves on text; so blocks under 2 KiB are not worth it. zlib's default
//   blocks of mixed content are mostly above that and below 32 KiB.
class BlockwiseInflater {
 public:
  BlockwiseInflater(const SimdInflateLibrary& lib, const uint8_t* data, uint64_t size,
                    InflateSink& sink, size_t chunkSize)
      : m_lib(lib), m_data(data), m_size(size), m_sink(sink), m_chunk(chunkSize),
        m_capacity(kWindow + chunkSize * std::max<size_t>(1, kSlideEvery / chunkSize)),
        m_buffer(new uint8_t[m_capacity]), m_saved(new uint8_t[kWindow]),
        m_isal(new inflate_state) {}

  InflateOutcome run() {
    if (inflateInit2(&m_zs, -MAX_WBITS) != Z_OK) {
      m_outcome.code = ERROR_INVALID_DATA;
      return m_outcome;
    }
    m_lib.init(m_isal.get());
    uint64_t position = 0;  // in bits
    uint64_t zlibSpan = 0;  // output left to zlib before the SIMD engine is tried again
    uint64_t smallRun = kZlibSpan / 2;
    for (;;) {
      Step step;
      if (zlibSpan != 0) {
        step = zlibBlocks(position, 0, zlibSpan, false);
        zlibSpan = 0;
      } else if (storedBlock(position, step)) {
        // done here: a complete, valid stored block is a copy
      } else {
        step = probeHeader(position);
        if (step == Step::kBlockDone) {
          bool last = (bitAt(position) & 1) != 0;
          unsigned type = bitAt(position + 1) | bitAt(position + 2) << 1;
          if (type == 0) {
            // A stored block cut short or with a bad length: zlib's verdict.
            step = zlibBlocks(position, 0, 0, false);
          } else if (type == 1 || (type == 2 && fewSymbols(position + 3))) {
            step = zlibBlocks(position, 0, kZlibSpan, false);
          } else {
            markHistory();
            uint64_t before = m_total;
            step = isalBlock(position, last);
            // A block the SIMD engine did not finish (the input ends inside
            // it, or it found an error) is decoded again by zlib, which has
            // the last word on how much of it is valid; what the SIMD engine
            // already gave out is skipped.
            if (step == Step::kInputEnded || step == Step::kFailed)
              step = zlibBlocks(position, m_total - before, 0, true);
            // Small blocks cost the SIMD engine more in setup than it saves:
            // let zlib run through the next stretch in one go.
            // The stretch doubles while the blocks stay small, so a stream
            // of tiny blocks pays for a try only now and then.
            else if (m_total - before < kSmallBlock)
              zlibSpan = smallRun = std::min(smallRun * 2, kMaxZlibSpan);
            else
              smallRun = kZlibSpan / 2;
            m_marked = false;
          }
        }
      }
      if (step == Step::kStreamEnd) m_outcome.reachedEnd = true;
      if (step == Step::kFailed) m_outcome.code = ERROR_INVALID_DATA;
      if (step != Step::kBlockDone) break;
    }
    flush();
    inflateEnd(&m_zs);
    return m_outcome;
  }

 private:
  static constexpr size_t kWindow = 32768;
  // The output buffer holds this much beyond the window, so that the
  // history slides to its front only now and then, not after every chunk.
  static constexpr size_t kSlideEvery = 262144;
  static constexpr uint64_t kSmallBlock = 2048;
  static constexpr uint64_t kZlibSpan = 131072;
  static constexpr uint64_t kMaxZlibSpan = 4 << 20;
  enum class Step { kBlockDone, kStreamEnd, kInputEnded, kFailed };

  unsigned bitAt(uint64_t bit) const {
    uint64_t byte = bit >> 3;
    return byte < m_size ? (m_data[byte] >> (bit & 7)) & 1 : 0;
  }

  // Output goes to m_buffer after at least a window of history; a full
  // chunk goes to the sink, and when no room is left for another chunk the
  // newest 32 KiB slide to the front.
  uint8_t* out() { return m_buffer.get() + m_base + m_fill; }
  size_t room() const { return m_chunk - m_fill; }
  void produced(size_t n) {
    m_fill += n;
    m_total += n;
    if (m_fill == m_chunk) flush();
  }
  void flush() {
    if (m_fill == 0) return;
    m_sink.write(m_buffer.get() + m_base, m_fill);
    m_outcome.written += m_fill;
    m_base += m_fill;
    m_fill = 0;
    if (m_capacity - m_base < m_chunk) {
      // The marked history is about to be overwritten: keep a copy.
      if (m_marked && !m_copied) {
        std::memcpy(m_saved.get(), m_buffer.get() + m_markedAt, m_savedSize);
        m_copied = true;
      }
      std::memmove(m_buffer.get(), m_buffer.get() + m_base - kWindow, kWindow);
      m_base = kWindow;
    }
  }
  size_t historySize() const { return static_cast<size_t>(std::min<uint64_t>(m_total, kWindow)); }
  // The history as it stands at the start of a block, kept for the block:
  // it stays where it is in the buffer until the buffer slides, and only
  // then is it copied aside (most blocks end before that).
  void markHistory() {
    m_savedSize = historySize();
    m_markedAt = m_base + m_fill - m_savedSize;
    m_marked = true;
    m_copied = false;
  }
  uint8_t* markedHistory() { return m_copied ? m_saved.get() : m_buffer.get() + m_markedAt; }

  uint32_t inputFrom(const uint8_t* next) const {
    return static_cast<uint32_t>(std::min<uint64_t>(m_size - (next - m_data), kMaxSlice));
  }

  // A stored block at `position` that lies wholly in the input and whose
  // length matches its complement is copied straight to the output, the
  // way zlib reads it (the bits up to the next byte boundary are skipped);
  // anything else is left to zlib (false). Saves zlib's copy into its own
  // window, so a package of incompressible files decodes as fast as with
  // zlib alone.
  bool storedBlock(uint64_t& position, Step& step) {
    if (position + 3 > m_size * 8 || bitAt(position + 1) != 0 || bitAt(position + 2) != 0)
      return false;
    bool last = bitAt(position) != 0;
    uint64_t byte = (position + 3 + 7) >> 3;
    if (byte + 4 > m_size) return false;
    const uint8_t* header = m_data + byte;
    unsigned length = header[0] | unsigned(header[1]) << 8;
    unsigned complement = header[2] | unsigned(header[3]) << 8;
    if (length != (~complement & 0xFFFFu) || byte + 4 + length > m_size) return false;
    for (const uint8_t* from = header + 4; length != 0;) {
      size_t n = std::min<size_t>(length, room());
      std::memcpy(out(), from, n);
      produced(n);
      from += n;
      length -= unsigned(n);
    }
    position = (byte + 4 + (header[0] | unsigned(header[1]) << 8)) * 8;
    step = last ? Step::kStreamEnd : Step::kBlockDone;
    return true;
  }

  // zlib reads the header at `position` and stops at its end. kBlockDone
  // here means "header complete"; kInputEnded that the input ends inside it.
  Step probeHeader(uint64_t position) {
    inflateReset(&m_zs);
    uint64_t byte = position >> 3;
    unsigned shift = position & 7;
    if (byte >= m_size) return Step::kInputEnded;
    const uint8_t* next = m_data + byte;
    if (shift != 0) {
      inflatePrime(&m_zs, int(8 - shift), m_data[byte] >> shift);
      ++next;
    }
    m_zs.next_in = const_cast<Bytef*>(next);
    m_zs.avail_in = inputFrom(next);
    uint8_t none;
    m_zs.next_out = &none;
    m_zs.avail_out = 1;
    for (;;) {
      int result = inflate(&m_zs, Z_TREES);
      if (result == Z_DATA_ERROR || result == Z_MEM_ERROR || result == Z_STREAM_ERROR)
        return Step::kFailed;
      if (m_zs.data_type & 256) return Step::kBlockDone;
      if (m_zs.avail_in != 0) return Step::kFailed;  // cannot happen: no progress with input left
      if (!refill()) return Step::kInputEnded;
    }
  }

  bool refill() {
    const uint8_t* next = m_zs.next_in;
    if (uint64_t(next - m_data) >= m_size) return false;
    m_zs.avail_in = inputFrom(next);
    return true;
  }

  // zlib decodes from the block at `position` on, its first `skip` output
  // bytes dropped (they were given out already), up to the first block end
  // after `span` bytes of output that a stored block does not follow;
  // `saved` takes the history kept by markHistory instead of the live one.
  Step zlibBlocks(uint64_t& position, uint64_t skip, uint64_t span, bool saved) {
    inflateReset(&m_zs);
    uint64_t byte = position >> 3;
    unsigned shift = position & 7;
    const uint8_t* next = m_data + byte;
    if (shift != 0) {
      inflatePrime(&m_zs, int(8 - shift), m_data[byte] >> shift);
      ++next;
    }
    size_t historyBytes = saved ? m_savedSize : historySize();
    if (historyBytes != 0)
      inflateSetDictionary(&m_zs, saved ? markedHistory() : out() - historyBytes,
                           static_cast<uInt>(historyBytes));
    m_zs.next_in = const_cast<Bytef*>(next);
    m_zs.avail_in = uint64_t(next - m_data) < m_size ? inputFrom(next) : 0;
    uint64_t start = m_total;
    for (;;) {
      m_zs.next_out = out();
      size_t before = room();
      m_zs.avail_out = static_cast<uInt>(before);
      // Stopping at every block end costs a return per block (many, in a
      // stream of tiny blocks): zlib runs freely until the span is covered.
      int result = inflate(&m_zs, m_total - start >= span ? Z_BLOCK : Z_NO_FLUSH);
      size_t n = before - m_zs.avail_out;
      if (skip != 0) {
        size_t drop = static_cast<size_t>(std::min<uint64_t>(skip, n));
        std::memmove(out(), out() + drop, n - drop);
        skip -= drop;
        n -= drop;
      }
      produced(n);
      if (result == Z_STREAM_END) return Step::kStreamEnd;
      // A block end. A block whose last codes were already in zlib's bit
      // buffer ends without taking input or giving output, which zlib
      // reports as Z_BUF_ERROR.
      if ((result == Z_OK || result == Z_BUF_ERROR) && (m_zs.data_type & 128)) {
        // The end of the stream's last block: stopping at block ends, zlib
        // reports it as a block end with the "last block" bit set.
        if (m_zs.data_type & 64) return Step::kStreamEnd;
        uint64_t end = uint64_t(m_zs.next_in - m_data) * 8 - (m_zs.data_type & 7);
        bool storedNext = (bitAt(end + 1) | bitAt(end + 2)) == 0;
        if (m_total - start >= span && !storedNext) {
          position = end;
          return Step::kBlockDone;
        }
        if (m_zs.avail_in == 0) refill();
        continue;
      }
      bool inputLeft = m_zs.avail_in != 0 || uint64_t(m_zs.next_in - m_data) < m_size;
      if (result == Z_BUF_ERROR && !inputLeft) return Step::kInputEnded;
      if (result != Z_OK) return Step::kFailed;
      if (m_zs.avail_in == 0 && !refill() && m_zs.avail_out != 0) return Step::kInputEnded;
    }
  }

  // The SIMD engine decodes the block at `position` as a stream of its own
  // (`last`: the block really is the stream's last).
  Step isalBlock(uint64_t& position, bool last) {
    inflate_state* st = m_isal.get();
    m_lib.reset(st);
    st->crc_flag = ISAL_DEFLATE;
    st->hist_bits = 0;
    if (m_savedSize != 0)
      m_lib.setDict(st, markedHistory(), static_cast<uint32_t>(m_savedSize));
    uint64_t byte = position >> 3;
    unsigned shift = position & 7;
    st->read_in = (uint64_t(m_data[byte]) >> shift) | 1;  // the "last block" bit
    st->read_in_length = int32_t(8 - shift);
    st->next_in = const_cast<uint8_t*>(m_data + byte + 1);
    st->avail_in = inputFrom(st->next_in);
    for (;;) {
      uint32_t inBefore = st->avail_in;
      size_t before = room();
      st->next_out = out();
      st->avail_out = static_cast<uint32_t>(before);
      int result = m_lib.inflate(st);
      // A call that fails may have written a match it then found invalid
      // (one reaching before the start of the output, say): none of its
      // output is given out. zlib decodes the block again from the bytes
      // the earlier calls gave out, and its bytes and verdict stand.
      if (result != ISAL_DECOMP_OK) return Step::kFailed;
      size_t n = before - st->avail_out;
      produced(n);
      if (st->block_state == ISAL_BLOCK_FINISH) {
        position = uint64_t(st->next_in - m_data) * 8 - uint64_t(st->read_in_length);
        return last ? Step::kStreamEnd : Step::kBlockDone;
      }
      if (st->avail_in == 0) {
        if (uint64_t(st->next_in - m_data) < m_size) {
          st->avail_in = inputFrom(st->next_in);
          continue;
        }
        if (st->avail_out != 0) return Step::kInputEnded;
      } else if (st->avail_out != 0 && st->avail_in == inBefore && n == 0) {
        return Step::kFailed;  // no progress with input left
      }
    }
  }

  // Whether the dynamic block whose header follows bit `position` (after
  // the three block-type bits) codes fewer than two literal/length symbols
  // or fewer than two distances. zlib has accepted the header already.
  bool fewSymbols(uint64_t position) const {
    auto bits = [&](unsigned count) {
      unsigned v = 0;
      for (unsigned i = 0; i < count; ++i) v |= bitAt(position++) << i;
      return v;
    };
    static const uint8_t kOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5,
                                       11, 4, 12, 3, 13, 2, 14, 1, 15};
    unsigned nlen = bits(5) + 257, ndist = bits(5) + 1, ncode = bits(4) + 4;
    uint8_t codeLengths[19] = {};
    for (unsigned i = 0; i < ncode; ++i) codeLengths[kOrder[i]] = uint8_t(bits(3));
    // Canonical codes of the code-length alphabet, read bit by bit.
    unsigned count[8] = {}, first[8] = {}, index[8] = {};
    uint8_t symbols[19];
    for (unsigned s = 0; s < 19; ++s) ++count[codeLengths[s]];
    count[0] = 0;
    unsigned code = 0, offset = 0;
    for (unsigned len = 1; len < 8; ++len) {
      code = (code + count[len - 1]) << 1;
      first[len] = code;
      index[len] = offset;
      offset += count[len];
    }
    unsigned fill[8] = {};
    for (unsigned s = 0; s < 19; ++s)
      if (unsigned len = codeLengths[s]) symbols[index[len] + fill[len]++] = uint8_t(s);
    auto symbol = [&]() -> int {
      unsigned c = 0;
      for (unsigned len = 1; len < 8; ++len) {
        c = c << 1 | bitAt(position++);
        if (c - first[len] < count[len]) return symbols[index[len] + (c - first[len])];
      }
      return -1;
    };
    unsigned litSymbols = 0, distSymbols = 0, previous = 0;
    for (unsigned i = 0; i < nlen + ndist;) {
      int s = symbol();
      if (s < 0) return true;
      unsigned repeat = 1, length = unsigned(s);
      if (s == 16) {
        repeat = 3 + bits(2);
        length = previous;
      } else if (s == 17) {
        repeat = 3 + bits(3);
        length = 0;
      } else if (s == 18) {
        repeat = 11 + bits(7);
        length = 0;
      }
      for (; repeat != 0 && i < nlen + ndist; --repeat, ++i) {
        if (length != 0) ++(i < nlen ? litSymbols : distSymbols);
      }
      previous = length;
    }
    return litSymbols < 2 || distSymbols < 2;
  }

  const SimdInflateLibrary& m_lib;
  const uint8_t* m_data;
  uint64_t m_size;
  InflateSink& m_sink;
  size_t m_chunk;
  size_t m_capacity;
  std::unique_ptr<uint8_t[]> m_buffer;
  size_t m_base = kWindow;  // where the chunk being filled starts
  size_t m_fill = 0;
  uint64_t m_total = 0;
  std::unique_ptr<uint8_t[]> m_saved;
  size_t m_savedSize = 0;
  size_t m_markedAt = 0;  // where the marked history starts in m_buffer
  bool m_marked = false;  // a block's history is marked (see markHistory)
  bool m_copied = false;  // ... and has been copied to m_saved
  std::unique_ptr<inflate_state> m_isal;
  z_stream m_zs{};
  InflateOutcome m_outcome;
};

#endif

}  // namespace

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
      return BlockwiseInflater(*lib, data, size, sink, chunkSize).run();
  }
#else
  (void)engine;
#endif
  return inflate_zlib(data, size, sink, chunkSize);
}
