// Decodes a byte stream that arrives in blocks into UTF-16 units in the
// locale's encoding, so that a multibyte character cut by a block boundary
// comes out whole and bytes that are not valid text come out as escape units
// (byte 0xNN -> unit 0xDCNN, which narrow_lib turns back into the byte).
#pragma once

#include <cstddef>
#include <string>

class NarrowBlockDecoder {
 public:
  // Appends the units of `bytes` (`size` of them) to `out`; a NUL byte is
  // the unit 0, like any other character. Up to three bytes at the end whose
  // meaning depends on what follows are held back for the next call.
  void decode(const char* bytes, size_t size, std::u16string& out);
  // Appends the units of any bytes still held back (the stream has ended).
  void finish(std::u16string& out);

 private:
  std::string m_heldBack;
};
