// The in-memory form of one starter configuration file: keys in the order they
// were created, each with its values in insertion order. Keys and values are
// matched without regard to case as compare_nocase sees it; a key keeps the
// spelling it was created with.
#pragma once

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

class ConfigFile {
 public:
  struct Entry {
    std::u16string key;
    std::vector<std::u16string> values;
  };

  // The entries in order (a key whose list is empty is kept but writes no line).
  const std::vector<Entry>& entries() const { return m_entries; }

  // The value list of the entry whose key matches, or null. The pointer is
  // valid until the next change.
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

  // Removes the first value equal to `value` from the key; the key goes with
  // its last value. False when nothing matched.
  bool removeValue(const std::u16string& key, const std::u16string& value);

 private:
  // Beside the ordered entries, an index from the folded key (nocase_key) to
  // the entry's position, and one set of the folded values tagged with their
  // entry's position, so that adding a line costs the same however many
  // lines came before it. Every operation keeps one entry per key, so a key
  // has at most one position.

  // Position of the key's entry, or -1.
  long find(const std::u16string& key) const;
  // Appends an entry for `key` with `values` and returns its position.
  size_t appendEntry(const std::u16string& key, std::vector<std::u16string> values = {});
  // Removes the entry at `pos` and renumbers the index.
  void eraseEntry(size_t pos);
  // The value set's element for a folded value of the entry at `pos`.
  static std::string valueKey(size_t pos, const std::u16string& value);
  void indexValues(size_t pos) const;
  void unindexValues(size_t pos);
  // Rebuilds both indexes from the entries.
  void reindex() const;
  // Folding follows the C locale; the index is rebuilt when that changed
  // since it was built.
  void checkLocale() const;

  std::vector<Entry> m_entries;
  mutable std::unordered_map<std::string, size_t> m_positions;
  mutable std::unordered_set<std::string> m_values;
  mutable std::string m_locale;
};
