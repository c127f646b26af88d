#include "package_test_util.h"

#include <dirent.h>
#include <zlib.h>

#include <algorithm>
#include <random>
#include <stdexcept>

namespace pkgtest {

Bytes& Bytes::u32(uint32_t v) {
  char b[4] = {char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
  m_data.append(b, 4);
  return *this;
}

Bytes& Bytes::units(const std::u16string& text) {
  for (char16_t c : text) {
    m_data.push_back(char(c & 0xFF));
    m_data.push_back(char(c >> 8));
  }
  return *this;
}

Bytes& Bytes::string(const std::u16string& text) {
  return u32(static_cast<uint32_t>(text.size())).units(text);
}

Bytes& Bytes::raw(const std::string& bytes) {
  m_data += bytes;
  return *this;
}

Bytes file_record(const std::u16string& name, uint64_t time, uint32_t offset, uint32_t size,
                  uint32_t surplus) {
  Bytes fields;
  fields.u32(uint32_t(name.size())).units(name);
  fields.u32(uint32_t(time)).u32(uint32_t(time >> 32)).u32(offset).u32(size);
  fields.raw(std::string(surplus, '\xA5'));
  return Bytes().u32(uint32_t(4 + fields.size())).append(fields);
}

Bytes language_record(const std::u16string& code, const std::u16string& title1,
                      const std::u16string& title2, const std::u16string& reference,
                      uint32_t surplus) {
  Bytes fields;
  fields.string(code).string(title1).string(title2).string(reference);
  fields.raw(std::string(surplus, '\x5A'));
  return Bytes().u32(uint32_t(4 + fields.size())).append(fields);
}

std::string working_file(const std::vector<TestFile>& files, const std::u16string& title1,
                         const std::u16string& title2, const std::u16string& reference) {
  Bytes b;
  b.u32(0).string(title1).string(title2).string(reference);
  b.u32(uint32_t(files.size()));
  uint32_t offset = 0;
  std::string data;
  for (const TestFile& f : files) {
    b.append(file_record(f.name, f.time, offset, uint32_t(f.contents.size())));
    offset += uint32_t(f.contents.size());
    data += f.contents;
  }
  return b.raw(data).str();
}

std::string deflate_raw(const std::string& data, int level, int strategy, bool zlibHeader) {
  z_stream zs{};
  if (deflateInit2(&zs, level, Z_DEFLATED, zlibHeader ? MAX_WBITS : -MAX_WBITS, 8, strategy) !=
      Z_OK)
    throw std::runtime_error("deflateInit2");
  std::string out(deflateBound(&zs, data.size()) + 64, '\0');
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  zs.avail_in = uInt(data.size());
  zs.next_out = reinterpret_cast<Bytef*>(&out[0]);
  zs.avail_out = uInt(out.size());
  if (deflate(&zs, Z_FINISH) != Z_STREAM_END) throw std::runtime_error("deflate");
  out.resize(zs.total_out);
  deflateEnd(&zs);
  return out;
}

std::string text_bytes(size_t size, uint32_t seed) {
  static const char* kWords[] = {"template", "config", "zelbrun", "record", "value",
                                 "alpha",    "beta",   "42",      "\n",     "section"};
  std::mt19937 rng(seed);
  std::string out;
  while (out.size() < size) {
    out += kWords[rng() % 10];
    out += (rng() % 7 == 0) ? ',' : ' ';
  }
  out.resize(size);
  return out;
}

std::string noise_bytes(size_t size, uint32_t seed) {
  std::mt19937 rng(seed);
  std::string out(size, '\0');
  for (char& c : out) c = char(rng());
  return out;
}

std::vector<std::string> list_dir(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d)) {
      std::string n = e->d_name;
      if (n != "." && n != "..") names.push_back(n);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace pkgtest
