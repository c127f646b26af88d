// Helpers for the package tests: working-file bytes built field by field,
// raw deflate, and package files in a private folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pkgtest {

// Little-endian working-file bytes, appended field by field.
class Bytes {
 public:
  Bytes& u32(uint32_t value);
  Bytes& units(const std::u16string& text);      // UTF-16LE, no count
  Bytes& string(const std::u16string& text);     // count, then units
  Bytes& raw(const std::string& bytes);
  Bytes& append(const Bytes& other) { return raw(other.m_data); }
  const std::string& str() const { return m_data; }
  size_t size() const { return m_data.size(); }

 private:
  std::string m_data;
};

// A file record: size S (= fields + surplus), then the fields, then
// `surplus` filler bytes.
Bytes file_record(const std::u16string& name, uint64_t time, uint32_t offset, uint32_t size,
                  uint32_t surplus = 0);
// A language record, with `surplus` filler bytes after the four strings.
Bytes language_record(const std::u16string& code, const std::u16string& title1,
                      const std::u16string& title2, const std::u16string& reference,
                      uint32_t surplus = 0);

struct TestFile {
  std::u16string name;
  uint64_t time;
  std::string contents;
};

// A sound working file: kind-0 header with the three texts, the files'
// records (contents laid out one after the other from offset 0), the data.
std::string working_file(const std::vector<TestFile>& files, const std::u16string& title1 = u"T1",
                         const std::u16string& title2 = u"T2",
                         const std::u16string& reference = u"doc");

// Raw deflate (no framing) of `data`; zlib-framed when `zlibHeader` is set.
std::string deflate_raw(const std::string& data, int level = 6, int strategy = 0,
                        bool zlibHeader = false);

// Deterministic test bytes: `size` bytes of text-like data, or of noise.
std::string text_bytes(size_t size, uint32_t seed);
std::string noise_bytes(size_t size, uint32_t seed);

// Regular files directly below `dir` (names only).
std::vector<std::string> list_dir(const std::string& dir);

}  // namespace pkgtest
