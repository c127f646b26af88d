#include "starter/config_file.h"

#include <locale.h>

#include "compat/text.h"

void ConfigFile::checkLocale() const {
  const char* current = setlocale(LC_CTYPE, nullptr);
  if (current && m_locale == current) return;
  m_locale = current ? current : "";
  reindex();
}

void ConfigFile::reindex() const {
  m_positions.clear();
  m_values.clear();
  for (size_t i = 0; i < m_entries.size(); ++i) {
    m_positions.emplace(nocase_key(m_entries[i].key), i);
    indexValues(i);
  }
}

std::string ConfigFile::valueKey(size_t pos, const std::u16string& value) {
  // A fixed-width position in front keeps the values of different keys apart.
  std::string key(reinterpret_cast<const char*>(&pos), sizeof pos);
  return key += nocase_key(value);
}

void ConfigFile::indexValues(size_t pos) const {
  for (const std::u16string& value : m_entries[pos].values) m_values.insert(valueKey(pos, value));
}

void ConfigFile::unindexValues(size_t pos) {
  for (const std::u16string& value : m_entries[pos].values) m_values.erase(valueKey(pos, value));
}

long ConfigFile::find(const std::u16string& key) const {
  checkLocale();
  auto it = m_positions.find(nocase_key(key));
  return it == m_positions.end() ? -1 : static_cast<long>(it->second);
}

size_t ConfigFile::appendEntry(const std::u16string& key, std::vector<std::u16string> values) {
  m_entries.push_back(Entry{key, std::move(values)});
  const size_t pos = m_entries.size() - 1;
  m_positions.emplace(nocase_key(key), pos);
  indexValues(pos);
  return pos;
}

void ConfigFile::eraseEntry(size_t pos) {
  m_entries.erase(m_entries.begin() + pos);
  reindex();  // the positions after it have moved
}

const std::vector<std::u16string>* ConfigFile::findValues(const std::u16string& key) const {
  long pos = find(key);
  return pos < 0 ? nullptr : &m_entries[pos].values;
}

bool ConfigFile::addValue(const std::u16string& key, const std::u16string& value) {
  long found = find(key);
  size_t pos = found < 0 ? appendEntry(key) : static_cast<size_t>(found);
  if (!m_values.insert(valueKey(pos, value)).second) return false;
  m_entries[pos].values.push_back(value);
  return true;
}

bool ConfigFile::setValue(const std::u16string& key, const std::u16string& value) {
  long found = find(key);
  if (found < 0) {
    appendEntry(key, {value});
    return true;
  }
  std::vector<std::u16string>& values = m_entries[found].values;
  if (values.size() == 1 && compare_nocase(values.front(), value) == 0) return false;
  unindexValues(found);
  values.assign(1, value);
  indexValues(found);
  return true;
}

void ConfigFile::setValues(const std::u16string& key, const std::vector<std::u16string>& values) {
  long found = find(key);
  if (found >= 0 && !values.empty()) {
    unindexValues(found);
    m_entries[found].values = values;
    indexValues(found);
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
    if (values.empty()) {
      eraseEntry(found);
    } else {
      // setValues may have stored repeats; the index keeps what remains.
      unindexValues(found);
      m_values.erase(valueKey(found, value));
      indexValues(found);
    }
    return true;
  }
  return false;
}
