// Where the installer looks for its distribution package.
#pragma once

#include <string>

// Full path of "plom8.tpk": in the current directory when `useCwd` is set,
// otherwise in the directory of the running executable (/proc/self/exe).
// Empty when that directory cannot be found.
std::u16string tpk_full_path(bool useCwd);
