// Loading the distribution package into the reader: space check, inflating
// into a working file in the temporary directory, reading the catalogues.
#pragma once

#include <string>

#include "compat/file_system.h"
#include "package/install_data.h"
#include "package/lz_compressor.h"

using PackageReader = config::InstallData<LZCompressor, FileSystem>;

// Name of the distribution package beside the installer.
inline const std::u16string kPackageFileName = u"plom8.tpk";

// Loads `packagePath` into `reader`. Returns the key of the text the user
// must be shown ("IDS_ERROR_NOSPACE", "IDS_ERROR_DAMAGEDSOURCE"), or an empty
// string on success. On failure no working file is left behind.
std::string load_package(PackageReader& reader, const std::u16string& packagePath);
