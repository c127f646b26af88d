// The hand-over to zlib: zlib reads each block header for the SIMD engine,
// and decodes the blocks the SIMD engine is not given or did not finish.
#include "package/inflate_blockwise.h"

#ifdef TPL_HAVE_ISAL

#include <algorithm>
#include <cstring>

BlockwiseInflater::BlockResult BlockwiseInflater::probeHeader(uint64_t position) {
  inflateReset(&m_zs);
  uint64_t byte = position >> 3;
  unsigned shift = position & 7;
  if (byte >= m_size) return BlockResult::kInputEnded;
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
      return BlockResult::kFailed;
    if (m_zs.data_type & 256) return BlockResult::kBlockDone;
    if (m_zs.avail_in != 0)
      return BlockResult::kFailed;  // cannot happen: no progress with input left
    if (!refill()) return BlockResult::kInputEnded;
  }
}

bool BlockwiseInflater::refill() {
  const uint8_t* next = m_zs.next_in;
  if (uint64_t(next - m_data) >= m_size) return false;
  m_zs.avail_in = inputFrom(next);
  return true;
}

BlockwiseInflater::BlockResult BlockwiseInflater::zlibBlocks(uint64_t& position, uint64_t skip,
                                                             uint64_t span, bool saved) {
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
    if (result == Z_STREAM_END) return BlockResult::kStreamEnd;
    // A block end. A block whose last codes were already in zlib's bit
    // buffer ends without taking input or giving output, which zlib
    // reports as Z_BUF_ERROR.
    if ((result == Z_OK || result == Z_BUF_ERROR) && (m_zs.data_type & 128)) {
      // The end of the stream's last block: stopping at block ends, zlib
      // reports it as a block end with the "last block" bit set.
      if (m_zs.data_type & 64) return BlockResult::kStreamEnd;
      uint64_t end = uint64_t(m_zs.next_in - m_data) * 8 - (m_zs.data_type & 7);
      bool storedNext = (bitAt(end + 1) | bitAt(end + 2)) == 0;
      if (m_total - start >= span && !storedNext) {
        position = end;
        return BlockResult::kBlockDone;
      }
      if (m_zs.avail_in == 0) refill();
      continue;
    }
    bool inputLeft = m_zs.avail_in != 0 || uint64_t(m_zs.next_in - m_data) < m_size;
    if (result == Z_BUF_ERROR && !inputLeft) return BlockResult::kInputEnded;
    if (result != Z_OK) return BlockResult::kFailed;
    if (m_zs.avail_in == 0 && !refill() && m_zs.avail_out != 0) return BlockResult::kInputEnded;
  }
}

#endif
