#include "starter/config_file.h"

#include "compat/text.h"

namespace {

bool same(const std::u16string& a, const std::u16string& b) { return compare_nocase(a, b) == 0; }

}  // namespace

ConfigFile::Entry& ConfigFile::appendEntry(const std::u16string& key) {
  m_entries.push_back(Entry{key, {}});
  return m_entries.back();
}

const std::vector<std::u16string>* ConfigFile::findValues(const std::u16string& key) const {
  for (const Entry& entry : m_entries)
    if (same(entry.key, key)) return &entry.values;
  return nullptr;
}

bool ConfigFile::addValue(const std::u16string& key, const std::u16string& value) {
  Entry* target = nullptr;
  for (Entry& entry : m_entries) {
    if (!same(entry.key, key)) continue;
    for (const std::u16string& existing : entry.values)
      if (same(existing, value)) return false;
    target = &entry;
  }
  if (!target) target = &appendEntry(key);
  target->values.push_back(value);
  return true;
}

bool ConfigFile::setValue(const std::u16string& key, const std::u16string& value) {
  Entry* target = nullptr;
  for (Entry& entry : m_entries) {
    if (!same(entry.key, key)) continue;
    if (entry.values.size() == 1 && same(entry.values.front(), value)) return false;
    entry.values.clear();
    target = &entry;
  }
  if (!target) target = &appendEntry(key);
  target->values.push_back(value);
  return true;
}

void ConfigFile::setValues(const std::u16string& key, const std::vector<std::u16string>& values) {
  for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
    if (!same(it->key, key)) continue;
    if (!values.empty()) {
      it->values = values;
      return;
    }
    // An emptied key goes to the end of the order (the entry is recreated).
    m_entries.erase(it);
    break;
  }
  m_entries.push_back(Entry{key, values});
}

bool ConfigFile::removeValue(const std::u16string& key, const std::u16string& value) {
  for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
    if (!same(it->key, key)) continue;
    for (auto v = it->values.begin(); v != it->values.end(); ++v) {
      if (!same(*v, value)) continue;
      it->values.erase(v);
      if (it->values.empty()) m_entries.erase(it);
      return true;
    }
  }
  return false;
}
