// The package's compression: one raw deflate stream from the first byte to
// the last (no zlib or gzip framing).
#pragma once

#include <string>

class LZCompressor {
 public:
  // Not provided by the installer (packages are built by tools/tpk-build):
  // returns 1 and touches nothing.
  static unsigned pack(const std::u16string& src, const std::u16string& dst);
  // Inflates `src` into `dst`. 0 on success, the open error of either file,
  // or 13 for a corrupt stream. A stream that ends early without its end
  // marker is accepted; an empty source gives an empty destination.
  static unsigned unpack(const std::u16string& src, const std::u16string& dst);
};
