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
    // The whole path, however long: a path cut short would name another
    // folder (a parent, or one that does not exist), which might hold
    // another package.
    std::string link(PATH_MAX, '\0');
    ssize_t n;
    while ((n = readlink("/proc/self/exe", &link[0], link.size())) >= 0 &&
           static_cast<size_t>(n) == link.size())
      link.resize(link.size() * 2);
    if (n <= 0) return std::u16string();
    directory.assign(link, 0, static_cast<size_t>(n));
    size_t slash = directory.rfind('/');
    directory = slash == std::string::npos ? std::string() : directory.substr(0, slash);
  }
  return widen_lib(directory + "/plom8.tpk");
}
