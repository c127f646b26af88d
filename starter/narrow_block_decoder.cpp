#include "starter/narrow_block_decoder.h"

#include "compat/text.h"
#include "compat/unicode.h"

namespace {

// The longest character of the multibyte encodings in use is four bytes, so
// at most three of its bytes can stand at the end of a block.
constexpr size_t kMaxHeldBack = 3;

bool is_escape_of(char16_t unit, char byte) {
  unsigned char b = static_cast<unsigned char>(byte);
  return b >= 0x80 && unit == static_cast<char16_t>(kEscapeBase | b);
}

// How many trailing bytes of `block` could still change meaning with more
// input: the longest tail (up to kMaxHeldBack) that decoded to escape units
// only, one per byte, while everything before it decodes the same without it.
// Such a tail is either the start of a character cut by the block boundary
// or bytes that are invalid anyway; decoding them again in front of the next
// block gives the character in the first case and the same escape units in
// the second, so holding back never changes the text of a valid stream and
// never loses an invalid byte.
size_t pending_tail(const std::string& block, const std::u16string& units) {
  size_t limit = block.size() < kMaxHeldBack ? block.size() : kMaxHeldBack;
  for (size_t k = limit; k > 0; --k) {
    if (units.size() < k) continue;
    bool escapes = true;
    for (size_t i = 0; i < k && escapes; ++i)
      escapes = is_escape_of(units[units.size() - k + i], block[block.size() - k + i]);
    if (!escapes) continue;
    // The escape units must really be those of the last k bytes, not of a
    // character whose low 16 bits look like an escape.
    if (widen_all(block.substr(0, block.size() - k)) == units.substr(0, units.size() - k)) return k;
  }
  return 0;
}

}  // namespace

void NarrowBlockDecoder::decode(const char* bytes, size_t size, std::u16string& out) {
  std::string block = m_heldBack;
  block.append(bytes, size);
  std::u16string units = widen_all(block);
  size_t tail = pending_tail(block, units);
  m_heldBack.assign(block, block.size() - tail, tail);
  out.append(units, 0, units.size() - tail);
}

void NarrowBlockDecoder::finish(std::u16string& out) {
  out += widen_all(m_heldBack);
  m_heldBack.clear();
}
