#include "install/target_path.h"

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "compat/text.h"

namespace {

// A backup directory name below the temporary directory: "zqstp" and up to
// ten digits, then "/".
constexpr size_t kBackupNameBytes = 16;
// The longest temporary name written beside a target file.
constexpr size_t kTempNameBytes = 40;

std::string real_path(const std::string& path) {
  std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
  return resolved ? std::string(resolved.get()) : std::string();
}

std::vector<std::string> split(const std::string& path) {
  std::vector<std::string> parts;
  size_t pos = 0;
  while (pos <= path.size()) {
    size_t end = path.find('/', pos);
    if (end == std::string::npos) end = path.size();
    if (end > pos) parts.push_back(path.substr(pos, end - pos));
    pos = end + 1;
  }
  return parts;
}

}  // namespace

std::u16string resolve_target(const std::u16string& dir) {
  if (dir.empty()) return dir;
  std::string path = narrow_lib(dir);
  if (path[0] != '/') {
    std::unique_ptr<char, decltype(&free)> cwd(getcwd(nullptr, 0), &free);
    path = std::string(cwd ? cwd.get() : ".") + "/" + path;
  }
  const std::vector<std::string> parts = split(path);
  // The longest prefix realpath accepts; the parts after it do not exist.
  size_t existing = parts.size();
  std::string base;
  for (;; --existing) {
    std::string prefix = "/";
    for (size_t i = 0; i < existing; ++i) prefix += (i ? "/" : "") + parts[i];
    base = real_path(prefix);
    if (!base.empty() || existing == 0) break;
  }
  if (base.empty()) base = "/";
  std::vector<std::string> rest = split(base);
  for (size_t i = existing; i < parts.size(); ++i) {
    if (parts[i] == ".") continue;
    if (parts[i] == "..") {
      if (!rest.empty()) rest.pop_back();
      continue;
    }
    rest.push_back(parts[i]);
  }
  std::string out = "/";
  for (const std::string& part : rest) out += part + "/";
  return widen_lib(out);
}

bool fits_path_max(const std::u16string& targetDir, size_t nameBytes,
                   const std::u16string& tempDir) {
  const size_t inTarget = narrow_lib(targetDir).size() + nameBytes + kTempNameBytes;
  const size_t inBackup = narrow_lib(tempDir).size() + kBackupNameBytes + nameBytes;
  return inTarget < PATH_MAX && inBackup < PATH_MAX;
}
