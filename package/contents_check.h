// Checking a file's contents against its catalogue record while they are
// copied: feed every byte in order, then ask whether they match.
#pragma once

#include <cstddef>
#include <cstdint>

#include "package/install_data.h"

class ContentsCheck {
 public:
  explicit ContentsCheck(const FileEntry& entry);
  // The next `size` bytes of the contents, in order.
  void update(const uint8_t* data, size_t size);
  // True when the bytes fed so far are the contents the record describes;
  // always true for a record without a check.
  bool matches() const;

 private:
  bool m_checked;
  uint32_t m_crc;
  uint32_t m_expected;
};
