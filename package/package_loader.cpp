#include "package/package_loader.h"

#include <errno.h>

#include <algorithm>
#include <string>

#include "package/catalogue.h"
#include "package/working_file.h"

namespace {

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

// Working file, inflation and catalogue.
Status load_working_file(PackageReader& reader, const std::u16string& packagePath,
                         const LoadOptions& options) {
  if (Status status = create_working_file(reader.workingDir, reader.handle); !status.ok())
    return status;

  int writeError = 0;
  UnpackOptions unpack;
  unpack.engine = options.engine;
  unpack.chunkSize = options.chunkSize;
  unpack.stop = options.stop;
  unpack.writeError = &writeError;
  errno = 0;
  if (unsigned code = LZCompressor::unpack(packagePath, reader.handle, unpack)) {
    // Any other failure is the package's own open or mapping, the last
    // system call made: its errno is the system's reason.
    const int packageError = errno;
    if (code == ERROR_CANTWRITE)
      return failure(code, Operation::kUnpack, reader.workingDir, writeError);
    if (code == ERROR_INVALID_DATA)
      return failure(code, Operation::kUnpack, packagePath, 0, "not a valid compressed stream");
    if (code == ERROR_CANCELLED)
      return failure(code, Operation::kUnpack, packagePath, 0, "interrupted");
    return failure(code, Operation::kUnpack, packagePath, packageError);
  }

  uint64_t total = seek_file(reader.handle, 0, FILE_END);
  if (seek_file(reader.handle, 0, FILE_BEGIN) != 0)
    return failure(ERROR_INVALID_DATA, Operation::kReadCatalogue, packagePath, 0,
                   "unreadable working file");

  HandleSource source(reader.handle);
  CatalogueInfo info;
  if (unsigned code = read_catalogue(source, total, reader.languages, reader.files, info))
    return failure(code, Operation::kReadCatalogue, packagePath, 0, info.fault);
  uint64_t dataStart = info.dataStart;

  // The catalogue was read in blocks, so the file pointer is past its end:
  // put it at the start of the data area and take the data start from there.
  seek_file(reader.handle, dataStart, FILE_BEGIN);
  uint64_t position = seek_file(reader.handle, 0, FILE_CURRENT);
  if (position != dataStart)
    return failure(ERROR_INVALID_DATA, Operation::kReadCatalogue, packagePath, 0,
                   "data area out of reach");
  for (FileEntry& entry : reader.files) entry.offset += position;
  return Status();
}

}  // namespace

bool has_space_for_package(uint64_t packageSize, uint64_t freeBytes) {
  return packageSize <= freeBytes / kSpaceReg;
}

Status load_package(PackageReader& reader, const std::u16string& packagePath) {
  return load_package(reader, packagePath, LoadOptions());
}

Status load_package(PackageReader& reader, const std::u16string& packagePath,
                    const LoadOptions& options) {
  uint64_t packageSize = 0;
  uint64_t freeBytes = 0;
  if (FileSystem::GetFileSize64(packagePath, &packageSize) == 0 &&
      options.freeSpace(&freeBytes) == 0 && !has_space_for_package(packageSize, freeBytes)) {
    std::u16string tmp;
    FileSystem::GetTempPath(tmp);
    return failure(ERROR_CANTWRITE, Operation::kCheckSpace, tmp, 0,
                   std::to_string(kSpaceReg * packageSize) + " bytes needed, " +
                       std::to_string(freeBytes) + " free");
  }

  Status status = load_working_file(reader, packagePath, options);
  if (!status.ok()) {
    reader.files.clear();
    if (reader.handle != INVALID_HANDLE_VALUE) {
      FileSystem::CloseHandle(reader.handle);
      reader.handle = INVALID_HANDLE_VALUE;
    }
    reader.workingDir.clear();
  }
  return status;
}
