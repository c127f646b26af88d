#include "package/package_location.h"

#include <limits.h>
#include <unistd.h>

#include <string>

#include "compat/text.h"

std::u16string tpk_full_path(bool useCwd) {
  std::string directory;
  if (useCwd) {
    char cwd[PATH_MAX] = {};
    if (!getcwd(cwd, sizeof cwd)) return std::u16string();
    directory = cwd;
  } else {
    char link[260] = {};
    ssize_t n = readlink("/proc/self/exe", link, sizeof link - 1);
    if (n <= 0) return std::u16string();
    directory.assign(link, static_cast<size_t>(n));
    size_t slash = directory.rfind('/');
    directory = slash == std::string::npos ? std::string() : directory.substr(0, slash);
  }
  return widen_lib(directory + "/plom8.tpk");
}
