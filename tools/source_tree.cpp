// The files a package is built from: walking the source tree, their
// last-write times, and the check values of their contents.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "compat/file_time.h"
#include "package/package_layout.h"
#include "tools/tpk_writer.h"

namespace tpk {

namespace {

bool walk(const std::string& root, const std::string& relative, dev_t excludeDev, ino_t excludeIno,
          std::vector<SourceFile>& files, std::vector<std::string>& warnings, std::string& error) {
  std::string directory = relative.empty() ? root : root + "/" + relative;
  DIR* dir = opendir(directory.c_str());
  if (!dir) {
    error = "cannot read directory " + directory + ": " + std::strerror(errno);
    return false;
  }
  std::vector<std::string> names;
  while (dirent* entry = readdir(dir)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(dir);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    std::string rel = relative.empty() ? name : relative + "/" + name;
    std::string path = root + "/" + rel;
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) {
      error = "cannot stat " + path + ": " + std::strerror(errno);
      return false;
    }
    if (S_ISLNK(st.st_mode)) {
      if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        warnings.push_back("skipped symbolic link " + rel);
        continue;
      }
    }
    if (S_ISDIR(st.st_mode)) {
      if (!walk(root, rel, excludeDev, excludeIno, files, warnings, error)) return false;
      continue;
    }
    if (!S_ISREG(st.st_mode)) {
      warnings.push_back("skipped special file " + rel);
      continue;
    }
    if (st.st_dev == excludeDev && st.st_ino == excludeIno) continue;
    SourceFile file;
    file.path = path;
    file.name = utf8_to_utf16(rel);
    file.size = static_cast<uint64_t>(st.st_size);
    if (!filetime_from_unix(st.st_mtim.tv_sec, st.st_mtim.tv_nsec, file.time)) {
      error = "modification time before 1601: " + path;
      return false;
    }
    files.push_back(std::move(file));
  }
  return true;
}

}  // namespace

bool filetime_from_unix(int64_t seconds, long nanoseconds, uint64_t& ticks) {
  if (seconds < -kFileTimeEpochOffset) return false;
  ticks = FileTimeToU64(TimespecToFileTime(seconds, nanoseconds));
  return true;
}

std::string format_filetime(uint64_t ticks) {
  int64_t seconds;
  long nanoseconds;
  FileTimeToTimespec(U64ToFileTime(ticks), seconds, nanoseconds);
  const unsigned fraction = unsigned(nanoseconds / 100);
  time_t t = static_cast<time_t>(seconds);
  struct tm tm {};
  gmtime_r(&t, &tm);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%07uZ", tm.tm_year + 1900,
                tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, fraction);
  return text;
}

bool collect_tree(const std::string& root, const std::string& exclude,
                  std::vector<SourceFile>& files, std::vector<std::string>& warnings,
                  std::string& error) {
  struct stat st;
  if (stat(root.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    error = "not a directory: " + root;
    return false;
  }
  dev_t excludeDev = 0;
  ino_t excludeIno = 0;
  struct stat ex;
  if (!exclude.empty() && stat(exclude.c_str(), &ex) == 0) {
    excludeDev = ex.st_dev;
    excludeIno = ex.st_ino;
  }
  std::string base = root;
  while (base.size() > 1 && base.back() == '/') base.pop_back();
  files.clear();
  if (!walk(base, "", excludeDev, excludeIno, files, warnings, error)) return false;
  // Whole relative paths in byte order, so the result does not depend on
  // how names sort inside each directory.
  std::sort(files.begin(), files.end(),
            [](const SourceFile& a, const SourceFile& b) { return a.path < b.path; });
  return true;
}

bool compute_checks(std::vector<SourceFile>& files, std::string& error) {
  std::unique_ptr<uint8_t[]> buffer(new uint8_t[kSourceReadChunk]);
  for (SourceFile& file : files) {
    int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      error = "cannot open " + file.path + ": " + std::strerror(errno);
      return false;
    }
    posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    uint32_t crc = 0;
    uint64_t got = 0;
    ssize_t n;
    while ((n = ::read(fd, buffer.get(), kSourceReadChunk)) != 0) {
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        error = "cannot read " + file.path + ": " + std::strerror(errno);
        close(fd);
        return false;
      }
      crc = layout::crc32_of(crc, buffer.get(), size_t(n));
      got += uint64_t(n);
    }
    close(fd);
    if (got != file.size) {
      error = file.path + " changed size while it was read";
      return false;
    }
    file.checked = true;
    file.contentsCrc = crc;
  }
  return true;
}

}  // namespace tpk
