// The SIMD engine's decoding, block by block, with zlib beside it. Only the
// package reader's decoding files include this; it is built only with the
// SIMD library's header.
#pragma once

#ifdef TPL_HAVE_ISAL

#include <isa-l/igzip_lib.h>
#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "package/inflate_engines.h"
#include "package/simd_inflate_library.h"

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
      : m_lib(lib),
        m_data(data),
        m_size(size),
        m_sink(sink),
        m_chunk(chunkSize),
        m_capacity(kWindow + chunkSize * std::max<size_t>(1, kSlideEvery / chunkSize)),
        m_buffer(new uint8_t[m_capacity]),
        m_saved(new uint8_t[kWindow]),
        m_isal(new inflate_state) {}

  InflateOutcome run();

 private:
  static constexpr size_t kWindow = 32768;
  // The output buffer holds this much beyond the window, so that the
  // history slides to its front only now and then, not after every chunk.
  static constexpr size_t kSlideEvery = 262144;
  static constexpr uint64_t kSmallBlock = 2048;
  static constexpr uint64_t kZlibSpan = 131072;
  static constexpr uint64_t kMaxZlibSpan = 4 << 20;
  // How decoding from a block on ended: at a block end with more to come
  // (the next block at `position`), at the end of the stream, with the
  // input used up, or at invalid data.
  enum class BlockResult { kBlockDone, kStreamEnd, kInputEnded, kFailed };

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
  void flush();
  size_t historySize() const { return static_cast<size_t>(std::min<uint64_t>(m_total, kWindow)); }
  // The history as it stands at the start of a block, kept for the block
  // (see markHistory in inflate_blockwise.cpp).
  void markHistory();
  uint8_t* markedHistory() { return m_copied ? m_saved.get() : m_buffer.get() + m_markedAt; }

  uint32_t inputFrom(const uint8_t* next) const {
    return static_cast<uint32_t>(std::min<uint64_t>(m_size - (next - m_data), kMaxInflateSlice));
  }

  // A stored block at `position` that lies wholly in the input and whose
  // length matches its complement is copied straight to the output, the
  // way zlib reads it (the bits up to the next byte boundary are skipped);
  // anything else is left to zlib (false). Saves zlib's copy into its own
  // window, so a package of incompressible files decodes as fast as with
  // zlib alone.
  bool storedBlock(uint64_t& position, BlockResult& result);

  // zlib reads the header at `position` and stops at its end. kBlockDone
  // here means "header complete"; kInputEnded that the input ends inside it.
  BlockResult probeHeader(uint64_t position);
  // More input for zlib after what it has taken; false when none is left.
  bool refill();
  // zlib decodes from the block at `position` on, its first `skip` output
  // bytes dropped (they were given out already), up to the first block end
  // after `span` bytes of output that a stored block does not follow;
  // `saved` takes the history kept by markHistory instead of the live one.
  BlockResult zlibBlocks(uint64_t& position, uint64_t skip, uint64_t span, bool saved);

  // The SIMD engine decodes the block at `position` as a stream of its own
  // (`last`: the block really is the stream's last).
  BlockResult isalBlock(uint64_t& position, bool last);

  // Whether the dynamic block whose header follows bit `position` (after
  // the three block-type bits) codes fewer than two literal/length symbols
  // or fewer than two distances. zlib has accepted the header already.
  bool fewSymbols(uint64_t position) const;

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
