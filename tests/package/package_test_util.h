// Helpers for the package tests: working-file bytes, raw deflate, test data.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "package/package_layout.h"
#include "package/package_loader.h"

namespace pkgtest {

// A little-endian u32; a counted string (count, then UTF-16LE units).
inline std::string u32(uint32_t v) {
  std::string out;
  layout::put_u32(out, v);
  return out;
}
inline std::string str16(const std::u16string& text) {
  std::string out;
  layout::put_string(out, text);
  return out;
}

// A file record: its size, the fields, then `surplus` bytes the reader must skip.
inline std::string file_record(const std::u16string& name, uint64_t time, uint32_t offset,
                               uint32_t size, const std::string& surplus = "") {
  std::string out;
  layout::put_file_record(out, name, time, offset, size, false, 0, surplus);
  return out;
}

// The same record with its check, for contents `contents`.
inline std::string checked_record(const std::u16string& name, uint64_t time, uint32_t offset,
                                  const std::string& contents) {
  std::string out;
  layout::put_file_record(out, name, time, offset, uint32_t(contents.size()), true,
                          layout::crc32_of(0, contents.data(), contents.size()));
  return out;
}

struct TestFile {
  std::u16string name;
  uint64_t time;
  std::string contents;
};

// A sound kind-0 working file ("Product", "Vendor", "doc.pdf"), the records
// (with their checks when `checked`) with contents laid out one after the
// other from offset 0, then the data.
inline std::string working_file(const std::vector<TestFile>& files, bool checked = false) {
  std::string out = u32(0) + str16(u"Product") + str16(u"Vendor") + str16(u"doc.pdf"), data;
  out += u32(uint32_t(files.size()));
  for (const TestFile& f : files) {
    uint32_t offset = uint32_t(data.size());
    out += checked ? checked_record(f.name, f.time, offset, f.contents)
                   : file_record(f.name, f.time, offset, uint32_t(f.contents.size()));
    data += f.contents;
  }
  return out + data;
}

// Raw deflate of `data`; zlib-framed when `zlibHeader` is set.
inline std::string deflate_raw(const std::string& data, int level = 6, bool zlibHeader = false) {
  uLongf size = compressBound(data.size());
  std::string out(size, '\0');
  compress2(reinterpret_cast<Bytef*>(&out[0]), &size, reinterpret_cast<const Bytef*>(data.data()),
            data.size(), level);
  return zlibHeader ? out.substr(0, size) : out.substr(2, size - 6);  // no header, no checksum
}

// `size` deterministic bytes of word-like text, or of noise.
inline std::string test_bytes(size_t size, uint32_t seed, bool noise = false) {
  static const char* kWords[] = {"template ", "config,", "record\n", "value ", "42 ", "alpha "};
  std::mt19937 rng(seed);
  std::string out;
  while (out.size() < size) out += noise ? std::string(1, char(rng())) : kWords[rng() % 6];
  return out.substr(0, size);
}

// The loaded reader's working file, which has no name of its own.
inline std::string working_file_path(const PackageReader& reader) {
  return "/proc/self/fd/" + std::to_string(reinterpret_cast<intptr_t>(reader.handle));
}

}  // namespace pkgtest
