#include "starter/config_line_scanner.h"

#include <utility>

#include "starter/config_file_io.h"

ConfigLineScanner::ConfigLineScanner(ConfigFile& config, std::u16string directory)
    : m_config(config), m_directory(std::move(directory)) {}

void ConfigLineScanner::feed(const char16_t* units, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    char16_t u = units[i];
    if (u == u'\n') {
      endLine();
    } else if (u == u'=' && !m_inValue) {
      m_inValue = true;  // the first "=" ends the key and is dropped
    } else {
      (m_inValue ? m_value : m_key).push_back(u);
    }
  }
}

void ConfigLineScanner::finish() { endLine(); }

void ConfigLineScanner::endLine() {
  // A bare key adds one empty value; "=text" adds text to the empty key; an
  // empty line adds nothing.
  if (!m_key.empty() || !m_value.empty())
    add_value_to_config_file(m_config, m_key, m_value, m_directory);
  m_key.clear();
  m_value.clear();
  m_inValue = false;
}
