// Reading starter configuration files.
#include <cstdio>

#include "compat/text.h"
#include "starter/config_file.h"
#include "starter/config_file_io.h"
#include "starter/config_line_scanner.h"
#include "starter/narrow_block_decoder.h"

namespace {

constexpr size_t kNarrowBlockBytes = 1024;
constexpr size_t kWideBlockUnits = 2048;

// Feeds the bytes after a UTF-16LE byte-order mark to the scanner.
void read_wide(FILE* file, ConfigLineScanner& scanner) {
  unsigned char bytes[kWideBlockUnits * 2];
  char16_t units[kWideBlockUnits];
  for (;;) {
    size_t count = std::fread(bytes, 2, kWideBlockUnits, file);
    if (count == 0) break;
    for (size_t i = 0; i < count; ++i)
      units[i] = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    scanner.feed(units, count);
  }
}

// Feeds the file's bytes, decoded in the locale's encoding, to the scanner.
void read_narrow(FILE* file, ConfigLineScanner& scanner) {
  char bytes[kNarrowBlockBytes];
  NarrowBlockDecoder decoder;
  std::u16string units;
  for (;;) {
    size_t count = std::fread(bytes, 1, kNarrowBlockBytes, file);
    if (count == 0) break;
    units.clear();
    decoder.decode(bytes, count, units);
    scanner.feed(units.data(), units.size());
  }
  units.clear();
  decoder.finish(units);
  scanner.feed(units.data(), units.size());
}

}  // namespace

void add_value_to_config_file(ConfigFile& config, const std::u16string& key,
                              const std::u16string& value, const std::u16string& /*directory*/) {
  config.addValue(key, value);
}

void read_config_file(const std::u16string& path, ConfigFile& config) {
  FILE* file = std::fopen(narrow_lib(path).c_str(), "rb");
  if (!file) return;
  size_t slash = path.rfind(u'/');
  ConfigLineScanner scanner(config,
                            slash == std::u16string::npos ? u"" : path.substr(0, slash + 1));
  unsigned char mark[2];
  if (std::fread(mark, 1, 2, file) == 2 && mark[0] == 0xFF && mark[1] == 0xFE) {
    read_wide(file, scanner);
  } else {
    std::rewind(file);
    read_narrow(file, scanner);
  }
  scanner.finish();
  std::fclose(file);
}

bool is_ansi_encoded(const std::u16string& path) {
  FILE* file = std::fopen(narrow_lib(path).c_str(), "r");
  if (!file) return false;
  unsigned char mark[2];
  bool narrow = std::fread(mark, 2, 1, file) == 1 && !(mark[0] == 0xFF && mark[1] == 0xFE);
  std::fclose(file);
  return narrow;
}
