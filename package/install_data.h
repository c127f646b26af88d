// The package reader: what a loaded package holds in memory, and the open
// working file that the installation copies file contents out of.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "compat/file_system.h"

// Descriptive texts of the package for one interface language.
struct LanguageEntry {
  std::u16string language;        // e.g. u"en"; compared without regard to case
  std::u16string title1;          // product text of the welcome page
  std::u16string title2;          // vendor text of the welcome page
  std::u16string descriptionRef;  // document offered after a successful install
};

// One file of the catalogue.
struct FileEntry {
  std::u16string name;  // relative path; "/" or "\\" separate components
  _FILETIME time;       // last-write time given to the installed file
  uint64_t offset = 0;  // absolute offset of the contents in the working file
  uint32_t size = 0;    // length of the contents in bytes
  // Set when the record carries a check: the copy must then find that the
  // CRC-32 of the record fields (fieldsCrc) continued over the contents is
  // recordCrc (see ContentsCheck). Without a check the contents are taken
  // as they are.
  bool hasCheck = false;
  uint32_t fieldsCrc = 0;
  uint32_t recordCrc = 0;
};

constexpr uint32_t kCopyBufferSize = 1048576;  // 1 MiB

class InstallData {
 public:
  InstallData() : buffer(new uint8_t[kCopyBufferSize]) {}
  ~InstallData() {
    // The working file has no name: closing it is deleting it.
    if (handle != INVALID_HANDLE_VALUE) FileSystem::CloseHandle(handle);
  }
  InstallData(const InstallData&) = delete;
  InstallData& operator=(const InstallData&) = delete;

  std::vector<LanguageEntry> languages;
  std::vector<FileEntry> files;
  std::u16string workingDir;             // the working file's folder; empty until it exists
  HANDLE handle = INVALID_HANDLE_VALUE;  // working file, opened read-write
  uint32_t bufferSize = kCopyBufferSize;
  std::unique_ptr<uint8_t[]> buffer;  // the copy buffer used for every file
};
