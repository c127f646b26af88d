#include "starter/config_file.h"

#include <locale.h>

#include "compat/text.h"

void ConfigFile::checkLocale() const {
  const char* current = setlocale(LC_CTYPE, nullptr);
  if (current && m_locale == current) return;
  m_locale = current ? current : "";
  m_positions.clear();
  for (size_t i = 0; i < m_entries.size(); ++i) m_positions.emplace(nocase_key(m_entries[i].key), i);
  for (size_t i = 0; i < m_entries.size(); ++i) m_foldedValues[i] = fold(m_entries[i].values);
}

ConfigFile::FoldedValues ConfigFile::fold(const std::vector<std::u16string>& values) {
  FoldedValues folded;
  for (const std::u16string& value : values) folded.insert(nocase_key(value));
  return folded;
}

long ConfigFile::find(const std::u16string& key) const {
  checkLocale();
  auto it = m_positions.find(nocase_key(key));
  return it == m_positions.end() ? -1 : static_cast<long>(it->second);
}

size_t ConfigFile::appendEntry(const std::u16string& key, std::vector<std::u16string> values) {
  m_foldedValues.push_back(fold(values));
  m_entries.push_back(Entry{key, std::move(values)});
  m_positions.emplace(nocase_key(key), m_entries.size() - 1);
  return m_entries.size() - 1;
}

void ConfigFile::eraseEntry(size_t pos) {
  m_positions.erase(nocase_key(m_entries[pos].key));
  m_entries.erase(m_entries.begin() + pos);
  m_foldedValues.erase(m_foldedValues.begin() + pos);
  for (auto& [folded, position] : m_positions)
    if (position > pos) --position;
}

const std::vector<std::u16string>* ConfigFile::findValues(const std::u16string& key) const {
  long pos = find(key);
  return pos < 0 ? nullptr : &m_entries[pos].values;
}

bool ConfigFile::addValue(const std::u16string& key, const std::u16string& value) {
  long found = find(key);
  size_t pos = found < 0 ? appendEntry(key) : static_cast<size_t>(found);
  if (!m_foldedValues[pos].insert(nocase_key(value)).second) return false;
  m_entries[pos].values.push_back(value);
  return true;
}

bool ConfigFile::setValue(const std::u16string& key, const std::u16string& value) {
  long found = find(key);
  if (found >= 0) {
    std::vector<std::u16string>& values = m_entries[found].values;
    if (values.size() == 1 && compare_nocase(values.front(), value) == 0) return false;
    values.assign(1, value);
    m_foldedValues[found] = fold(values);
    return true;
  }
  appendEntry(key, {value});
  return true;
}

void ConfigFile::setValues(const std::u16string& key, const std::vector<std::u16string>& values) {
  long found = find(key);
  if (found >= 0 && !values.empty()) {
    m_entries[found].values = values;
    m_foldedValues[found] = fold(values);
    return;
  }
  // An emptied key goes to the end of the order (the entry is recreated).
  if (found >= 0) eraseEntry(found);
  appendEntry(key, values);
}

bool ConfigFile::removeValue(const std::u16string& key, const std::u16string& value) {
  long found = find(key);
  if (found < 0) return false;
  std::vector<std::u16string>& values = m_entries[found].values;
  for (auto v = values.begin(); v != values.end(); ++v) {
    if (compare_nocase(*v, value) != 0) continue;
    values.erase(v);
    if (values.empty())
      eraseEntry(found);
    else
      m_foldedValues[found] = fold(values);  // setValues may have stored repeats
    return true;
  }
  return false;
}
