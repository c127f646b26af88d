// Reading the working file's header and catalogue from untrusted bytes, and
// the one gate every catalogue entry passes before it is used. The layout is
// in package/package_layout.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "package/install_data.h"

// Where the parser takes its bytes from, front to back.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Reads up to `count` bytes into `buffer` and stores how many in *got (fewer
  // only at the end). Returns 0, or the error code of a failed read.
  virtual unsigned read(uint8_t* buffer, size_t count, size_t* got) = 0;
};

// A ByteSource over bytes in memory; they must outlive the source.
class MemorySource : public ByteSource {
 public:
  MemorySource(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
  unsigned read(uint8_t* buffer, size_t count, size_t* got) override;

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_position = 0;
};

// What read_catalogue learnt besides the entries.
struct CatalogueInfo {
  uint32_t kind = 0;       // the header kind (0: single-language header)
  uint64_t dataStart = 0;  // position right after the catalogue
  std::string fault;       // why the bytes were refused; empty when they were not
};

// Reads the header and the catalogue of a working file of `totalSize` bytes
// from `in` (positioned at its start), then passes every file entry through
// catalogue_entry_fault. Languages are appended to `languages`; `files` is
// replaced, offsets still relative to the data area, which starts at
// info.dataStart. Returns 0, 13 when the bytes are damaged (a field or
// record runs past the end, a record is smaller than its fields, a count
// promises more records than the bytes left can hold, a file record's
// fields do not match its check, an entry fails the gate; info.fault says
// which), or the source's read error. Nothing larger
// than the bytes left in the file is ever allocated, whatever the counts say.
unsigned read_catalogue(ByteSource& in, uint64_t totalSize, std::vector<LanguageEntry>& languages,
                        std::vector<FileEntry>& files, CatalogueInfo& info);

// The gate for one catalogue entry, with `offset` relative to a data area of
// `dataSize` bytes: null when the entry may be installed, else the reason it
// may not. Refused: an empty name, a name holding a NUL unit, an absolute
// name ("/..."), a drive prefix ("C:..."), any ".." component ("\\" counts
// as "/"), and contents running past the end of the data area.
const char* catalogue_entry_fault(const std::u16string& name, uint64_t offset, uint64_t size,
                                  uint64_t dataSize);
