// Reading starter configuration files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

// Opens the file for reading when it is a regular file; null otherwise. A
// FIFO or device is never opened; should one be swapped in after the check,
// the non-blocking open returns at once and the second check refuses it.
FILE* open_regular(const std::u16string& path, const char* mode) {
  std::string name = narrow_lib(path);
  struct stat st;
  if (stat(name.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
  int fd = open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
      fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) {
    close(fd);
    return nullptr;
  }
  FILE* file = fdopen(fd, mode);
  if (!file) close(fd);
  return file;
}

}  // namespace

void add_value_to_config_file(ConfigFile& config, const std::u16string& key,
                              const std::u16string& value, const std::u16string& /*directory*/) {
  config.addValue(key, value);
}

void read_config_file(const std::u16string& path, ConfigFile& config) {
  FILE* file = open_regular(path, "rb");
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
  FILE* file = open_regular(path, "r");
  if (!file) return false;
  unsigned char mark[2];
  bool narrow = std::fread(mark, 2, 1, file) == 1 && !(mark[0] == 0xFF && mark[1] == 0xFE);
  std::fclose(file);
  return narrow;
}
