#include "package/contents_check.h"

#include "package/package_layout.h"

ContentsCheck::ContentsCheck(const FileEntry& entry)
    : m_checked(entry.hasCheck), m_crc(entry.fieldsCrc), m_expected(entry.recordCrc) {}

void ContentsCheck::update(const uint8_t* data, size_t size) {
  if (m_checked) m_crc = layout::crc32_of(m_crc, data, size);
}

bool ContentsCheck::matches() const { return !m_checked || m_crc == m_expected; }
