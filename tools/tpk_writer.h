// Building distribution packages: walking a source tree (source_tree.cpp) and
// writing the working-file layout as one raw deflate stream (tpk_writer.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "compat/unicode.h"

namespace tpk {

// Descriptive texts of a package for one language.
struct Language {
  std::u16string code;  // e.g. u"en"
  std::u16string title1;
  std::u16string title2;
  std::u16string descriptionRef;
};

// The header: kind 0 carries one set of texts (read as language "en"),
// any other kind a table of languages.
struct Header {
  uint32_t kind = 0;
  Language single;                  // kind 0: code ignored
  std::vector<Language> languages;  // kind != 0
};

// One file to be packed.
struct SourceFile {
  std::string path;     // where to read it
  std::u16string name;  // relative name in the package, "/"-separated
  uint64_t time = 0;    // last-write FILETIME, 100-ns ticks since 1601
  uint64_t size = 0;
  bool checked = false;  // the record carries the check (contentsCrc is set)
  uint32_t contentsCrc = 0;
};

// UTF-8 -> UTF-16 (characters above U+FFFF as surrogate pairs; a byte that is
// not part of valid UTF-8 becomes the unit 0xDC00 + byte), and back, whatever
// the locale.
using ::utf16_to_utf8;
using ::utf8_to_utf16;

// Last-write time in 100-ns ticks since 1601-01-01 UTC; false before 1601.
bool filetime_from_unix(int64_t seconds, long nanoseconds, uint64_t& ticks);
// "YYYY-MM-DDTHH:MM:SS.fffffffZ".
std::string format_filetime(uint64_t ticks);

// Bytes read from a source file at a time.
constexpr size_t kSourceReadChunk = 1 << 20;

// Every regular file below `root`, sorted by relative name (byte order),
// with sizes and times from stat. Symbolic links to files are followed;
// other special entries are skipped with a note in `warnings`. The file
// `exclude` (when it exists) is left out. False with `error` set when the
// tree cannot be read.
bool collect_tree(const std::string& root, const std::string& exclude,
                  std::vector<SourceFile>& files, std::vector<std::string>& warnings,
                  std::string& error);

// Reads every file once for the CRC-32 of its contents and marks it for a
// checked record. False with `error` set when a file cannot be read or its
// size is not the one collected.
bool compute_checks(std::vector<SourceFile>& files, std::string& error);

// Header and catalogue bytes of the working file for `files`, packed one
// after the other in order. False with `error` set when a size, offset or
// name does not fit the format's 32-bit fields.
bool encode_catalogue(const Header& header, const std::vector<SourceFile>& files,
                      std::string& bytes, std::string& error);

// Called now and then with the content bytes packed so far and in total.
using Progress = std::function<void(uint64_t done, uint64_t total)>;

// Writes the package for `files` to `output`: the catalogue, then every
// file's contents streamed from disk, as one raw deflate stream at `level`
// (0-9). Memory use does not depend on the file sizes. The same input gives
// the same bytes. The package is written beside `output` and renamed into
// place only when complete. False with `error` set on failure (a file that
// changed size, or for a checked record its contents, since it was
// collected is a failure).
bool write_package(const std::string& output, const Header& header,
                   const std::vector<SourceFile>& files, int level, const Progress& progress,
                   std::string& error);

}  // namespace tpk
