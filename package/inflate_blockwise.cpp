// The block loop of the SIMD engine: which block goes to which engine, the
// stored blocks copied directly, the SIMD engine's own blocks, and the
// output window that keeps a block's history.
#include "package/inflate_blockwise.h"

#ifdef TPL_HAVE_ISAL

#include <algorithm>
#include <cstring>

#include "compat/file_system.h"

InflateOutcome BlockwiseInflater::run() {
  if (inflateInit2(&m_zs, -MAX_WBITS) != Z_OK) {
    m_outcome.code = ERROR_INVALID_DATA;
    return m_outcome;
  }
  m_lib.init(m_isal.get());
  uint64_t position = 0;  // in bits
  uint64_t zlibSpan = 0;  // output left to zlib before the SIMD engine is tried again
  uint64_t smallRun = kZlibSpan / 2;
  for (;;) {
    BlockResult result;
    if (zlibSpan != 0) {
      result = zlibBlocks(position, 0, zlibSpan, false);
      zlibSpan = 0;
    } else if (storedBlock(position, result)) {
      // done here: a complete, valid stored block is a copy
    } else {
      result = probeHeader(position);
      if (result == BlockResult::kBlockDone) {
        bool last = (bitAt(position) & 1) != 0;
        unsigned type = bitAt(position + 1) | bitAt(position + 2) << 1;
        if (type == 0) {
          // A stored block cut short or with a bad length: zlib's verdict.
          result = zlibBlocks(position, 0, 0, false);
        } else if (type == 1 || (type == 2 && fewSymbols(position + 3))) {
          result = zlibBlocks(position, 0, kZlibSpan, false);
        } else {
          markHistory();
          uint64_t before = m_total;
          result = isalBlock(position, last);
          // A block the SIMD engine did not finish (the input ends inside
          // it, or it found an error) is decoded again by zlib, which has
          // the last word on how much of it is valid; what the SIMD engine
          // already gave out is skipped.
          if (result == BlockResult::kInputEnded || result == BlockResult::kFailed)
            result = zlibBlocks(position, m_total - before, 0, true);
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
    if (result == BlockResult::kStreamEnd) m_outcome.reachedEnd = true;
    if (result == BlockResult::kFailed) m_outcome.code = ERROR_INVALID_DATA;
    if (result != BlockResult::kBlockDone) break;
  }
  flush();
  inflateEnd(&m_zs);
  return m_outcome;
}

void BlockwiseInflater::flush() {
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

// The history as it stands at the start of a block, kept for the block:
// it stays where it is in the buffer until the buffer slides, and only
// then is it copied aside (most blocks end before that).
void BlockwiseInflater::markHistory() {
  m_savedSize = historySize();
  m_markedAt = m_base + m_fill - m_savedSize;
  m_marked = true;
  m_copied = false;
}

bool BlockwiseInflater::storedBlock(uint64_t& position, BlockResult& result) {
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
  result = last ? BlockResult::kStreamEnd : BlockResult::kBlockDone;
  return true;
}

BlockwiseInflater::BlockResult BlockwiseInflater::isalBlock(uint64_t& position, bool last) {
  inflate_state* st = m_isal.get();
  m_lib.reset(st);
  st->crc_flag = ISAL_DEFLATE;
  st->hist_bits = 0;
  if (m_savedSize != 0) m_lib.setDict(st, markedHistory(), static_cast<uint32_t>(m_savedSize));
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
    if (result != ISAL_DECOMP_OK) return BlockResult::kFailed;
    size_t n = before - st->avail_out;
    produced(n);
    if (st->block_state == ISAL_BLOCK_FINISH) {
      position = uint64_t(st->next_in - m_data) * 8 - uint64_t(st->read_in_length);
      return last ? BlockResult::kStreamEnd : BlockResult::kBlockDone;
    }
    if (st->avail_in == 0) {
      if (uint64_t(st->next_in - m_data) < m_size) {
        st->avail_in = inputFrom(st->next_in);
        continue;
      }
      if (st->avail_out != 0) return BlockResult::kInputEnded;
    } else if (st->avail_out != 0 && st->avail_in == inBefore && n == 0) {
      return BlockResult::kFailed;  // no progress with input left
    }
  }
}

InflateOutcome inflate_blockwise(const SimdInflateLibrary& lib, const uint8_t* data, uint64_t size,
                                 InflateSink& sink, size_t chunkSize) {
  return BlockwiseInflater(lib, data, size, sink, chunkSize).run();
}

#endif
