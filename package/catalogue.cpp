#include "package/catalogue.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "package/package_layout.h"

namespace {

constexpr size_t kReadBlock = 65536;

// Front-to-back reading of the working file with bounds known in advance:
// every request is checked against the bytes left before anything is
// allocated or copied. Reads from the source go in blocks of 64 KiB.
class Reader {
 public:
  Reader(ByteSource& in, uint64_t total)
      : m_in(in), m_total(total), m_block(new uint8_t[kReadBlock]) {}

  uint64_t position() const { return m_position; }
  uint64_t left() const { return m_total - m_position; }
  unsigned error() const { return m_error; }

  // Copies `count` bytes; false (with the error set) when they are not all there.
  bool take(void* out, uint64_t count, const char* what) {
    if (count > left()) return fail(ERROR_INVALID_DATA, what);
    auto* dst = static_cast<uint8_t*>(out);
    while (count != 0) {
      if (m_begin == m_end) {
        if (count >= kReadBlock) {  // large field: straight into place
          size_t got = 0;
          if (unsigned code = m_in.read(dst, count, &got)) return fail(code, "read error");
          if (got != count) return fail(ERROR_INVALID_DATA, "the file is shorter than its size");
          m_position += count;
          return true;
        }
        if (!refill()) return false;
      }
      size_t n = static_cast<size_t>(std::min<uint64_t>(count, m_end - m_begin));
      std::memcpy(dst, m_block.get() + m_begin, n);
      m_begin += n;
      m_position += n;
      dst += n;
      count -= n;
    }
    return true;
  }

  bool u32(uint32_t& value, const char* what) {
    uint8_t b[4];
    if (!take(b, 4, what)) return false;
    value = layout::get_u32(b);
    return true;
  }

  bool fail(unsigned code, const char* why) {
    if (m_error == 0) {
      m_error = code;
      m_fault = why;
    }
    return false;
  }
  const std::string& fault() const { return m_fault; }

 private:
  bool refill() {
    size_t want = static_cast<size_t>(std::min<uint64_t>(kReadBlock, left()));
    size_t got = 0;
    if (unsigned code = m_in.read(m_block.get(), want, &got)) return fail(code, "read error");
    if (got == 0) return fail(ERROR_INVALID_DATA, "the file is shorter than its size");
    m_begin = 0;
    m_end = got;
    return true;
  }

  ByteSource& m_in;
  uint64_t m_total;
  uint64_t m_position = 0;
  std::unique_ptr<uint8_t[]> m_block;
  size_t m_begin = 0;
  size_t m_end = 0;
  unsigned m_error = 0;
  std::string m_fault;
};

// Fields of one record, taken from the record's own bytes.
class RecordView {
 public:
  RecordView(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

  bool u32(uint32_t& value) {
    if (m_size - m_position < 4) return false;
    const uint8_t* b = m_data + m_position;
    value = layout::get_u32(b);
    m_position += 4;
    return true;
  }

  // `units` UTF-16LE code units.
  bool units(uint32_t count, std::u16string& out) {
    if (uint64_t(count) * 2 > m_size - m_position) return false;
    out.resize(count);
    const uint8_t* b = m_data + m_position;
    for (uint32_t i = 0; i < count; ++i) out[i] = char16_t(b[2 * i] | b[2 * i + 1] << 8);
    m_position += size_t(count) * 2;
    return true;
  }

  size_t position() const { return m_position; }
  size_t left() const { return m_size - m_position; }
  const uint8_t* at(size_t position) const { return m_data + position; }

  bool string(std::u16string& out) {
    uint32_t count;
    return u32(count) && units(count, out);
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_position = 0;
};

// A string straight from the file: count, then 2*count bytes.
bool read_string(Reader& in, std::u16string& out, std::vector<uint8_t>& scratch) {
  uint32_t count;
  if (!in.u32(count, "the file ends inside a header string")) return false;
  if (uint64_t(count) * 2 > in.left())
    return in.fail(ERROR_INVALID_DATA, "a header string runs past the end");
  scratch.resize(size_t(count) * 2);
  if (!in.take(scratch.data(), scratch.size(), "a header string runs past the end")) return false;
  RecordView view(scratch.data(), scratch.size());
  return view.units(count, out);
}

// One record: its size S (at least `minSize`), then S - 4 bytes into `record`.
bool read_record(Reader& in, uint32_t minSize, std::vector<uint8_t>& record) {
  uint32_t size;
  if (!in.u32(size, "the file ends inside a record size")) return false;
  if (size < minSize) return in.fail(ERROR_INVALID_DATA, "a record is smaller than its fields");
  if (uint64_t(size) - 4 > in.left())
    return in.fail(ERROR_INVALID_DATA, "a record runs past the end");
  record.resize(size - 4);
  return in.take(record.data(), record.size(), "a record runs past the end");
}

// The check that may open a file record's spare bytes (`record` positioned
// right after the size field). The CRC of the checked fields, continued over
// contents whose CRC is the stored one, must give the stored record CRC: so
// a damaged name, time or size, or a damaged stored value, is found here,
// and the contents are checked against the record CRC while they are copied.
// Spare bytes that do not open with the marker are not a check.
bool read_check(RecordView& record, FileEntry& entry) {
  if (record.left() < layout::kCheckSize) return true;
  const uint8_t* check = record.at(record.position());
  if (layout::get_u32(check) != layout::kCheckMarker) return true;
  uint32_t contentsCrc = layout::get_u32(check + layout::kU32);
  uint32_t recordCrc = layout::get_u32(check + 2 * layout::kU32);
  // Name length, name and time, then (after the offset) the size.
  size_t nameAndTime = layout::kU32 + 2 * entry.name.size() + layout::kTime;
  uint32_t fieldsCrc = layout::crc32_of(0, record.at(0), nameAndTime);
  fieldsCrc = layout::crc32_of(fieldsCrc, record.at(nameAndTime + layout::kU32), layout::kU32);
  if (uint32_t(crc32_combine(fieldsCrc, contentsCrc, z_off_t(entry.size))) != recordCrc)
    return false;
  entry.hasCheck = true;
  entry.fieldsCrc = fieldsCrc;
  entry.recordCrc = recordCrc;
  return true;
}

bool parse(Reader& in, std::vector<LanguageEntry>& languages, std::vector<FileEntry>& files,
           CatalogueInfo& info) {
  std::vector<uint8_t> scratch;
  uint32_t kind;
  if (!in.u32(kind, "the file ends inside the header kind")) return false;
  info.kind = kind;
  if (kind == layout::kSingleLanguageKind) {
    LanguageEntry entry;
    entry.language = u"en";
    if (!read_string(in, entry.title1, scratch) || !read_string(in, entry.title2, scratch) ||
        !read_string(in, entry.descriptionRef, scratch))
      return false;
    languages.push_back(std::move(entry));
  } else {
    uint32_t count;
    if (!in.u32(count, "the file ends inside the language count")) return false;
    if (uint64_t(count) * layout::kMinLanguageRecordSize > in.left())
      return in.fail(ERROR_INVALID_DATA, "more language records than the file can hold");
    for (uint32_t i = 0; i < count; ++i) {
      if (!read_record(in, layout::kMinLanguageRecordSize, scratch)) return false;
      RecordView record(scratch.data(), scratch.size());
      LanguageEntry entry;
      if (!record.string(entry.language) || !record.string(entry.title1) ||
          !record.string(entry.title2) || !record.string(entry.descriptionRef))
        return in.fail(ERROR_INVALID_DATA, "a language string runs past its record");
      languages.push_back(std::move(entry));
    }
  }

  files.clear();
  uint32_t count;
  if (!in.u32(count, "the file ends inside the file count")) return false;
  if (uint64_t(count) * layout::kMinFileRecordSize > in.left())
    return in.fail(ERROR_INVALID_DATA, "more file records than the file can hold");
  for (uint32_t i = 0; i < count; ++i) {
    if (!read_record(in, layout::kMinFileRecordSize, scratch)) return false;
    RecordView record(scratch.data(), scratch.size());
    FileEntry entry;
    uint32_t nameLength, offset, size;
    if (!record.u32(nameLength) || !record.units(nameLength, entry.name) ||
        !record.u32(entry.time.dwLowDateTime) || !record.u32(entry.time.dwHighDateTime) ||
        !record.u32(offset) || !record.u32(size))
      return in.fail(ERROR_INVALID_DATA, "a file record's fields run past its record");
    entry.offset = offset;
    entry.size = size;
    if (!read_check(record, entry))
      return in.fail(ERROR_INVALID_DATA, "a file record does not match its check");
    files.push_back(std::move(entry));
  }
  return true;
}

bool is_drive_letter(char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z'); }

}  // namespace

unsigned MemorySource::read(uint8_t* buffer, size_t count, size_t* got) {
  size_t n = std::min(count, m_size - m_position);
  if (n != 0) std::memcpy(buffer, m_data + m_position, n);
  m_position += n;
  *got = n;
  return 0;
}

const char* catalogue_entry_fault(const std::u16string& name, uint64_t offset, uint64_t size,
                                  uint64_t dataSize) {
  if (name.empty()) return "a file name is empty";
  if (name[0] == u'/' || name[0] == u'\\') return "a file name is absolute";
  if (name.size() >= 2 && is_drive_letter(name[0]) && name[1] == u':')
    return "a file name has a drive prefix";
  size_t start = 0;
  for (size_t i = 0; i <= name.size(); ++i) {
    if (i < name.size() && name[i] == 0) return "a file name holds a NUL character";
    if (i == name.size() || name[i] == u'/' || name[i] == u'\\') {
      if (i - start == 2 && name[start] == u'.' && name[start + 1] == u'.')
        return "a file name has a '..' component";
      start = i + 1;
    }
  }
  if (offset > dataSize || size > dataSize - offset)
    return "a file's contents run past the end of the data area";
  return nullptr;
}

unsigned read_catalogue(ByteSource& in, uint64_t totalSize, std::vector<LanguageEntry>& languages,
                        std::vector<FileEntry>& files, CatalogueInfo& info) {
  Reader reader(in, totalSize);
  info = CatalogueInfo();
  if (!parse(reader, languages, files, info)) {
    info.fault = reader.fault();
    return reader.error() != 0 ? reader.error() : ERROR_INVALID_DATA;
  }
  info.dataStart = reader.position();
  uint64_t dataSize = totalSize - info.dataStart;
  for (const FileEntry& entry : files) {
    if (const char* fault = catalogue_entry_fault(entry.name, entry.offset, entry.size, dataSize)) {
      info.fault = fault;
      return ERROR_INVALID_DATA;
    }
  }
  // With every record checked (the builder checks all or none), the data
  // area holds exactly the files' contents: bytes past the last contents
  // mean records were lost, a file count damaged to a smaller one say. A
  // package without file records carries no check, so its data area is
  // read as it is, like that of any package without checks.
  bool allChecked = !files.empty();
  uint64_t end = 0;
  for (const FileEntry& entry : files) {
    allChecked = allChecked && entry.hasCheck;
    end = std::max(end, entry.offset + entry.size);
  }
  if (allChecked && end != dataSize) {
    info.fault = "the data area holds more than the checked files' contents";
    return ERROR_INVALID_DATA;
  }
  return 0;
}
