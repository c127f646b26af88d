// tpk-list's reading of a package: decoding the stream, reading the header
// and catalogue from it, and checking every checked file's contents, each
// damage reported on standard error.
#pragma once

#include <cstdint>
#include <vector>

#include "package/catalogue.h"

// What a sound package holds.
struct PackageScan {
  uint64_t decoded = 0;     // bytes the stream decodes to
  bool reachedEnd = false;  // the stream ends with its end marker
  CatalogueInfo info;
  std::vector<LanguageEntry> languages;
  std::vector<FileEntry> files;  // offsets relative to the data area
};

// Reads the package `path`, mapped at data[0, size). True for a sound
// package; false for a damaged one, after one "tpk-list: PATH: damaged
// package: ..." line per fault found. The decoded size is shown now and then
// on standard error when it is a terminal.
bool scan_package(const char* path, const uint8_t* data, uint64_t size, PackageScan& scan);
