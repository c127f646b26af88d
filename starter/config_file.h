// The in-memory form of one starter configuration file: keys in the order they
// were created, each with its values in insertion order. Keys and values are
// matched without regard to ASCII case (compare_nocase); a key keeps the
// spelling it was created with.
#pragma once

#include <string>
#include <vector>

class ConfigFile {
 public:
  struct Entry {
    std::u16string key;
    std::vector<std::u16string> values;
  };

  // The entries in order (a key whose list is empty is kept but writes no line).
  const std::vector<Entry>& entries() const { return m_entries; }

  // The value list of the first entry whose key matches, or null. The pointer
  // is valid until the next change.
  const std::vector<std::u16string>* findValues(const std::u16string& key) const;

  // Appends `value` to the key (creating the key at the end when new); false,
  // and no change, when the key already holds an equal value.
  bool addValue(const std::u16string& key, const std::u16string& value);

  // Makes `value` the key's only value, keeping the key's place; false, and no
  // change, when it already is the only value.
  bool setValue(const std::u16string& key, const std::u16string& value);

  // Replaces the key's list with `values` as given. A non-empty list keeps the
  // key's place; an empty list moves the key to the end with no values.
  void setValues(const std::u16string& key, const std::vector<std::u16string>& values);

  // Removes the first value equal to `value` from the first key that holds
  // one; the key goes with its last value. False when nothing matched.
  bool removeValue(const std::u16string& key, const std::u16string& value);

 private:
  // Appends an entry for `key` with no values and returns it.
  Entry& appendEntry(const std::u16string& key);

  std::vector<Entry> m_entries;
};
