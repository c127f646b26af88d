// The byte layout of the working file (the package's decoded contents), in
// one place: the reader parses with these sizes and this order, and the
// package builder and the tests' encoder write through the helpers below.
// docs/package-format.md describes the same layout in prose.
//
// All integers are u32 little-endian. A string is a u32 count N of UTF-16LE
// units followed by 2*N bytes, no terminator.
//
//   header kind                u32   0: single-language header, else a table
//   kind 0: title 1, title 2, description reference (strings, language "en")
//   kind != 0: language count L, then L language records:
//     record size S            u32   the whole record, this field included
//     language code, title 1, title 2, description reference (strings)
//     spare bytes up to S      skipped
//   file count F, then F file records:
//     record size S            u32   the whole record, this field included
//     name length N            u32   UTF-16 units
//     name                     2*N bytes
//     last-write time          u32 low, u32 high (FILETIME, 100 ns since 1601)
//     offset                   u32   relative to the start of the data area
//     size                     u32   bytes of contents
//     spare bytes up to S      skipped, unless they open with the check:
//       check marker           u32   kCheckMarker
//       contents CRC-32        u32   over the contents alone
//       record CRC-32          u32   over N, the name, the time, the size and
//                                    then the contents, in that order
//   data area                  the rest: every file's contents at its offset
#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace layout {

constexpr uint32_t kU32 = 4;
constexpr uint32_t kTime = 8;  // FILETIME: low u32, then high u32

// Header kind of the single-language header; any other value: a table.
constexpr uint32_t kSingleLanguageKind = 0;

// Smallest records: every field present, all strings empty.
constexpr uint32_t kMinLanguageRecordSize = kU32 + 4 * kU32;
constexpr uint32_t kMinFileRecordSize = kU32 + kU32 + kTime + kU32 + kU32;

// The check that may follow a file record's fields: the marker ("TPC1" in
// the file's byte order), then the contents CRC, then the record CRC.
constexpr uint32_t kCheckMarker = 0x31435054;
constexpr uint32_t kCheckSize = 3 * kU32;

inline uint32_t get_u32(const uint8_t* b) {
  return uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
}

inline void put_u32(std::string& out, uint32_t v) {
  const char b[4] = {char(v), char(v >> 8), char(v >> 16), char(v >> 24)};
  out.append(b, 4);
}

inline void put_units(std::string& out, const std::u16string& s) {
  for (char16_t c : s) {
    out.push_back(char(c & 0xFF));
    out.push_back(char(c >> 8));
  }
}

inline void put_string(std::string& out, const std::u16string& s) {
  put_u32(out, static_cast<uint32_t>(s.size()));
  put_units(out, s);
}

inline uint64_t language_record_size(const std::u16string& code, const std::u16string& title1,
                                     const std::u16string& title2, const std::u16string& ref) {
  return kMinLanguageRecordSize +
         2 * (uint64_t(code.size()) + title1.size() + title2.size() + ref.size());
}

inline void put_language_record(std::string& out, const std::u16string& code,
                                const std::u16string& title1, const std::u16string& title2,
                                const std::u16string& ref) {
  put_u32(out, static_cast<uint32_t>(language_record_size(code, title1, title2, ref)));
  put_string(out, code);
  put_string(out, title1);
  put_string(out, title2);
  put_string(out, ref);
}

// The record fields the record CRC covers before the contents: name length,
// name, time (low, high) and size, as they stand in the record.
inline std::string checked_fields(const std::u16string& name, uint64_t time, uint32_t size) {
  std::string out;
  put_string(out, name);
  put_u32(out, static_cast<uint32_t>(time));
  put_u32(out, static_cast<uint32_t>(time >> 32));
  put_u32(out, size);
  return out;
}

inline uint32_t crc32_of(uint32_t crc, const void* data, size_t size) {
  const auto* p = static_cast<const Bytef*>(data);
  while (size != 0) {
    uInt n = size > 0x40000000 ? 0x40000000 : uInt(size);
    crc = uint32_t(::crc32(crc, p, n));
    p += n;
    size -= n;
  }
  return crc;
}

// The CRC-32 of the checked fields alone: where the record CRC starts
// before it runs on over the contents.
inline uint32_t fields_crc(const std::u16string& name, uint64_t time, uint32_t size) {
  std::string fields = checked_fields(name, time, size);
  return crc32_of(0, fields.data(), fields.size());
}

// The record CRC of a file whose contents have the CRC `contentsCrc`.
inline uint32_t record_crc(const std::u16string& name, uint64_t time, uint32_t size,
                           uint32_t contentsCrc) {
  return uint32_t(crc32_combine(fields_crc(name, time, size), contentsCrc, z_off_t(size)));
}

inline uint64_t file_record_size(const std::u16string& name, bool checked, uint64_t spare = 0) {
  return kMinFileRecordSize + 2 * uint64_t(name.size()) + (checked ? kCheckSize : 0) + spare;
}

// A file record; with `checked` the check follows the fields (contentsCrc
// is the CRC-32 of the file's contents); `spare` bytes follow after that.
inline void put_file_record(std::string& out, const std::u16string& name, uint64_t time,
                            uint32_t offset, uint32_t size, bool checked, uint32_t contentsCrc,
                            const std::string& spare = std::string()) {
  put_u32(out, static_cast<uint32_t>(file_record_size(name, checked, spare.size())));
  put_string(out, name);
  put_u32(out, static_cast<uint32_t>(time));
  put_u32(out, static_cast<uint32_t>(time >> 32));
  put_u32(out, offset);
  put_u32(out, size);
  if (checked) {
    put_u32(out, kCheckMarker);
    put_u32(out, contentsCrc);
    put_u32(out, record_crc(name, time, size, contentsCrc));
  }
  out += spare;
}

}  // namespace layout
