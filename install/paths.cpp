#include "install/paths.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <vector>

#include "compat/file_ops.h"

namespace {

std::string working_directory() {
  std::unique_ptr<char, decltype(&free)> cwd(getcwd(nullptr, 0), &free);
  return cwd ? std::string(cwd.get()) : std::string("/");
}

std::string absolute(const std::string& path) {
  return !path.empty() && path[0] == '/' ? path : working_directory() + "/" + path;
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

std::string real_path(const std::string& path) {
  std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
  return resolved ? std::string(resolved.get()) : std::string();
}

}  // namespace

std::string fold_path(const std::string& path) {
  std::vector<std::string> kept;
  for (const std::string& part : split(absolute(path))) {
    if (part == ".") continue;
    if (part == "..") {
      if (!kept.empty()) kept.pop_back();
      continue;
    }
    kept.push_back(part);
  }
  std::string out;
  for (const std::string& part : kept) out += "/" + part;
  return out.empty() ? "/" : out;
}

bool path_exists(const std::string& path) {
  struct stat64 st;
  return file_ops().stat(AT_FDCWD, path, st, false) != ENOENT;
}

bool is_below(const std::string& path, const std::string& dir) {
  if (path.size() <= dir.size() || path.compare(0, dir.size(), dir) != 0) return false;
  return dir == "/" || path[dir.size()] == '/';
}

std::string parent_of(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string spell_target(const std::string& dir, size_t& existingBytes) {
  existingBytes = 0;
  if (dir.empty()) return dir;
  const std::vector<std::string> parts = split(absolute(dir));
  // The longest prefix realpath accepts; the parts after it do not exist yet.
  size_t existing = parts.size();
  std::string base;
  for (;; --existing) {
    std::string prefix = "/";
    for (size_t i = 0; i < existing; ++i) prefix += (i ? "/" : "") + parts[i];
    base = real_path(prefix);
    if (!base.empty() || existing == 0) break;
  }
  if (base == "/") base.clear();
  existingBytes = base.size();
  std::string out = base;
  for (size_t i = existing; i < parts.size(); ++i)
    if (parts[i] != ".") out += "/" + parts[i];
  return out + "/";
}
