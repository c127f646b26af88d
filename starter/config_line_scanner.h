// Splits the text of a configuration file into key/value pairs, one unit at a
// time: the key runs to the first "=" of a line, the value from there to the
// line feed (further "=" included). Nothing is trimmed.
#pragma once

#include <cstddef>
#include <string>

class ConfigFile;

class ConfigLineScanner {
 public:
  // Pairs go to `config` through add_value_to_config_file with `directory`;
  // `config` must outlive the scanner.
  ConfigLineScanner(ConfigFile& config, std::u16string directory);

  // Consumes `count` units; pairs are added as their lines end.
  void feed(const char16_t* units, size_t count);
  // Adds the pair of an unterminated last line, if any. Call once, at the end.
  void finish();

 private:
  void endLine();

  ConfigFile& m_config;
  std::u16string m_directory;
  bool m_inValue = false;
  std::u16string m_key;
  std::u16string m_value;
};
