// Starter configuration files on disk: lines of "key=value" separated by a
// line feed, read into and written from a ConfigFile.
#pragma once

#include <string>

#include "compat/status.h"

class ConfigFile;

// Adds the pairs of the file at `path` to `config` (what it already holds is
// kept). Nothing is trimmed; a missing or unreadable file adds nothing, and so
// does anything that is not a regular file (a FIFO, a device, a directory),
// which is never opened, so reading never waits.
// Narrow files are decoded in the locale's encoding, bytes it cannot decode
// kept as escape units and a NUL byte as the unit 0; a file starting with
// FF FE is read as UTF-16LE.
void read_config_file(const std::u16string& path, ConfigFile& config);

// Replaces the file at `path` with one "key=value" line per value of
// `config`, in order, narrow and without a byte-order mark (a unit 0 is
// written as a NUL byte). The new text is staged next to the file and
// renamed over it, so on failure the old file is untouched and no staging
// file remains. A link is written through; a path that names something
// other than a regular file, or a link that leads nowhere, is not written.
// Failure (operation kWriteStarter, `path`): code 1 when the file cannot be
// opened or created (or is not a regular file), 2 when writing or replacing
// it failed.
Status write_config_file(const std::u16string& path, const ConfigFile& config);

// False when the file is missing (or not a regular file), shorter than two
// bytes or starts with the UTF-16LE byte-order mark FF FE; true otherwise.
bool is_ansi_encoded(const std::u16string& path);

// Adds `value` to `key` in `config` (ConfigFile::addValue). `directory` is the
// directory part of the file being read; it does not change the result.
void add_value_to_config_file(ConfigFile& config, const std::u16string& key,
                              const std::u16string& value, const std::u16string& directory);
