#include "support/test_support.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace testsupport {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/tpltest.XXXXXX";
  if (!mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
  m_path = tmpl;
}

TempDir::~TempDir() {
  std::string cmd = "chmod -R u+rwx '" + m_path + "' 2>/dev/null; rm -rf '" + m_path + "'";
  (void)!std::system(cmd.c_str());
}

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : m_name(name) {
  if (const char* old = std::getenv(name)) {
    m_had = true;
    m_old = old;
  }
  setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
  if (m_had)
    setenv(m_name.c_str(), m_old.c_str(), 1);
  else
    unsetenv(m_name.c_str());
}

void write_file(const std::string& path, const std::string& bytes) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
  if (!out) throw std::runtime_error("cannot write " + path);
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

bool exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

void set_mtime(const std::string& path, int64_t seconds, long nanoseconds) {
  struct timespec ts[2] = {{static_cast<time_t>(seconds), nanoseconds},
                           {static_cast<time_t>(seconds), nanoseconds}};
  if (utimensat(AT_FDCWD, path.c_str(), ts, 0) != 0) throw std::runtime_error("utimensat " + path);
}

static void walk(const std::string& root, const std::string& rel, Snapshot& out) {
  const std::string dir = rel.empty() ? root : root + "/" + rel;
  DIR* d = opendir(dir.c_str());
  if (!d) return;
  std::vector<std::string> names;
  while (dirent* e = readdir(d))
    if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") names.push_back(e->d_name);
  closedir(d);
  for (const std::string& name : names) {
    const std::string r = rel.empty() ? name : rel + "/" + name;
    const std::string path = root + "/" + r;
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) continue;
    std::ostringstream v;
    v << std::oct << st.st_mode << std::dec << " " << st.st_mtim.tv_sec << "."
      << st.st_mtim.tv_nsec;
    // Only a regular file is read: a FIFO would block, a device never end.
    if (S_ISREG(st.st_mode)) v << " " << read_file(path);
    if (S_ISLNK(st.st_mode)) {
      char target[PATH_MAX];
      ssize_t n = readlink(path.c_str(), target, sizeof target);
      v << " -> " << std::string(target, n > 0 ? size_t(n) : 0);
    }
    out[r] = v.str();
    if (S_ISDIR(st.st_mode)) walk(root, r, out);
  }
}

Snapshot snapshot(const std::string& root) {
  Snapshot s;
  walk(root, "", s);
  return s;
}

}  // namespace testsupport
