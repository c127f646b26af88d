// Loading the distribution package into the reader: space check, inflating
// into a working file in the temporary directory, reading the catalogues.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "compat/file_system.h"
#include "compat/status.h"
#include "package/install_data.h"
#include "package/lz_compressor.h"

using PackageReader = InstallData;

// Name of the distribution package beside the installer.
inline const std::u16string kPackageFileName = u"plom8.tpk";

// Room the temporary directory must offer, as a multiple of the package size.
constexpr uint64_t kSpaceReg = 3;

// Free bytes of the temporary directory into *bytes; 0 on success.
using FreeSpaceQuery = unsigned (*)(uint64_t* bytes);

// How a package is loaded. The defaults are what the installer uses; tests
// and benchmarks replace the free-space query, the engine or the chunk size.
struct LoadOptions {
  FreeSpaceQuery freeSpace = &FileSystem::GetFreeSpaceTmpDir64;
  InflateEngine engine = default_inflate_engine();
  size_t chunkSize = LZCompressor::kBufferSize;
  const std::atomic<bool>* stop = nullptr;  // raised: unpacking ends, the load fails with 1223
};

// Whether `freeBytes` holds kSpaceReg times `packageSize` (64-bit, no wrap).
bool has_space_for_package(uint64_t packageSize, uint64_t freeBytes);

// Loads `packagePath` into `reader`, which must be empty (no working file).
// On failure the status names the operation: Operation::kCheckSpace (too little room
// in the temporary directory), Operation::kCreateWorkFile, Operation::kUnpack (a
// corrupt stream, a full disk with sysError ENOSPC, a package that cannot
// be opened or mapped with the system's errno, or code 1223 after a stop
// request) or Operation::kReadCatalogue (damaged contents). On success
// the reader holds the languages and the files (offsets absolute in the
// working file), the working file is open read-write and positioned at the
// start of its data area, and the reader's destructor closes and deletes
// it. On failure the files are cleared, the working file is closed and
// deleted, and nothing is left in the temporary directory. When either the
// package size or the free space cannot be found, the space check is skipped.
Status load_package(PackageReader& reader, const std::u16string& packagePath);
Status load_package(PackageReader& reader, const std::u16string& packagePath,
                    const LoadOptions& options);
