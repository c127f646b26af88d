// Helpers for the package tests: working-file bytes, raw deflate, test data.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "compat/file_system.h"

namespace pkgtest {

// A little-endian u32; a counted string (count, then UTF-16LE units).
std::string u32(uint32_t value);
std::string str16(const std::u16string& text);
// A file record: its size, the fields, then `surplus` bytes the reader must skip.
std::string file_record(const std::u16string& name, uint64_t time, uint32_t offset, uint32_t size,
                        const std::string& surplus = "");

struct TestFile {
  std::u16string name;
  uint64_t time;
  std::string contents;
};

// A sound kind-0 working file ("Product", "Vendor", "doc.pdf"), the records
// with contents laid out one after the other from offset 0, then the data.
std::string working_file(const std::vector<TestFile>& files);

// Raw deflate of `data`; zlib-framed when `zlibHeader` is set.
std::string deflate_raw(const std::string& data, int level = 6, bool zlibHeader = false);

// `size` bytes at `offset` of the open file `handle` (fewer at its end).
std::string read_at(HANDLE handle, uint64_t offset, uint32_t size);

// `size` deterministic bytes of word-like text, or of noise.
std::string test_bytes(size_t size, uint32_t seed, bool noise = false);

// Names of the entries directly below `dir`, sorted.
std::vector<std::string> list_dir(const std::string& dir);

}  // namespace pkgtest
