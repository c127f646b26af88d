// Reading a dynamic block's code-length table and code lengths far enough to
// tell a code of fewer than two symbols: the only incomplete codes zlib
// accepts, so such a block is left to zlib and its rules for unusable codes.
#include "package/inflate_blockwise.h"

#ifdef TPL_HAVE_ISAL

bool BlockwiseInflater::fewSymbols(uint64_t position) const {
  auto bits = [&](unsigned count) {
    unsigned v = 0;
    for (unsigned i = 0; i < count; ++i) v |= bitAt(position++) << i;
    return v;
  };
  static const uint8_t kOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                     11, 4,  12, 3, 13, 2, 14, 1, 15};
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

#endif
