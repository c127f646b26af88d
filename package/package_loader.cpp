#include "package/package_loader.h"

#include <algorithm>

#include "package/catalogue.h"

namespace {

constexpr unsigned kDamaged = 13;

// The working file as a ByteSource, read through FileSystem in the blocks
// the catalogue reader asks for.
class HandleSource : public ByteSource {
 public:
  explicit HandleSource(HANDLE handle) : m_handle(handle) {}
  unsigned read(uint8_t* buffer, size_t count, size_t* got) override {
    constexpr size_t kMaxRead = size_t(1) << 30;
    *got = 0;
    while (count != 0) {
      unsigned want = static_cast<unsigned>(std::min(count, kMaxRead));
      unsigned n = 0;
      if (unsigned code = FileSystem::ReadFile(m_handle, buffer, want, &n, nullptr)) return code;
      *got += n;
      if (n < want) break;
      buffer += n;
      count -= n;
    }
    return 0;
  }

 private:
  HANDLE m_handle;
};

// Moves the file pointer to the 64-bit `target` and returns where it ended
// up, both through SetFilePointer's two halves. The low half is read
// sign-extended, so the high half is adjusted to compensate.
uint64_t seek_to(HANDLE handle, uint64_t target, unsigned method) {
  int64_t lowSigned = static_cast<int32_t>(static_cast<uint32_t>(target));
  long high = static_cast<long>((static_cast<int64_t>(target) - lowSigned) >> 32);
  uint32_t low = FileSystem::SetFilePointer(handle, static_cast<long>(lowSigned), &high, method);
  return (uint64_t(uint32_t(high)) << 32) | low;
}

uint64_t current_position(HANDLE handle) {
  long high = 0;
  uint32_t low = FileSystem::SetFilePointer(handle, 0, &high, FILE_CURRENT);
  return (uint64_t(uint32_t(high)) << 32) | low;
}

// Working file, inflation and catalogue; the failure code of the first step
// that fails, or 0.
unsigned load_working_file(PackageReader& reader, const std::u16string& packagePath,
                           const LoadOptions& options) {
  std::u16string directory;
  if (unsigned code = FileSystem::GetTempPath(directory)) return code;
  std::u16string working;
  unsigned code = FileSystem::GetTempFileName(directory, u"kpt", working);
  reader.workingPath = working;
  if (code != 0) return code;

  if ((code = LZCompressor::unpack(packagePath, working, options.engine, options.chunkSize)))
    return code;
  if ((code = FileSystem::CreateFile(working, GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING,
                                     reader.handle)))
    return code;

  uint64_t total = seek_to(reader.handle, 0, FILE_END);
  if (seek_to(reader.handle, 0, FILE_BEGIN) != 0) return kDamaged;

  HandleSource source(reader.handle);
  CatalogueInfo info;
  if ((code = read_catalogue(source, total, reader.languages, reader.files, info)))
    return code;
  uint64_t dataStart = info.dataStart;

  // The catalogue was read in blocks, so the file pointer is past its end:
  // put it at the start of the data area and take the data start from there.
  seek_to(reader.handle, dataStart, FILE_BEGIN);
  uint64_t position = current_position(reader.handle);
  if (position != dataStart) return kDamaged;
  for (FileEntry& entry : reader.files) entry.offset += position;
  return 0;
}

}  // namespace

bool has_space_for_package(uint64_t packageSize, uint64_t freeBytes) {
  return packageSize <= freeBytes / kSpaceReg;
}

std::string load_package(PackageReader& reader, const std::u16string& packagePath) {
  return load_package(reader, packagePath, LoadOptions());
}

std::string load_package(PackageReader& reader, const std::u16string& packagePath,
                         const LoadOptions& options) {
  uint64_t packageSize = 0;
  uint64_t freeBytes = 0;
  if (FileSystem::GetFileSize64(packagePath, &packageSize) == 0 &&
      options.freeSpace(&freeBytes) == 0 && !has_space_for_package(packageSize, freeBytes))
    return "IDS_ERROR_NOSPACE";

  if (load_working_file(reader, packagePath, options) != 0) {
    reader.files.clear();
    if (reader.handle != INVALID_HANDLE_VALUE) {
      FileSystem::CloseHandle(reader.handle);
      reader.handle = INVALID_HANDLE_VALUE;
    }
    if (!reader.workingPath.empty()) {
      FileSystem::DeleteFile(reader.workingPath);
      reader.workingPath.clear();
    }
    return "IDS_ERROR_DAMAGEDSOURCE";
  }
  return std::string();
}
