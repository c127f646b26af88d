#include "tools/tpk_writer.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "package/package_layout.h"

namespace tpk {

namespace {

constexpr int64_t kEpochDifference = 11644473600;  // seconds from 1601 to 1970
constexpr uint64_t kTicksPerSecond = 10000000;
constexpr size_t kReadChunk = 1 << 20;
constexpr size_t kWriteChunk = 1 << 18;

std::string errno_text() { return std::strerror(errno); }

using layout::put_string;
using layout::put_u32;

bool walk(const std::string& root, const std::string& relative, dev_t excludeDev,
          ino_t excludeIno, std::vector<SourceFile>& files, std::vector<std::string>& warnings,
          std::string& error) {
  std::string directory = relative.empty() ? root : root + "/" + relative;
  DIR* dir = opendir(directory.c_str());
  if (!dir) {
    error = "cannot read directory " + directory + ": " + errno_text();
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
      error = "cannot stat " + path + ": " + errno_text();
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

// Raw deflate into a file descriptor through a fixed output buffer.
class DeflateWriter {
 public:
  DeflateWriter(int fd, int level) : m_fd(fd), m_out(new uint8_t[kWriteChunk]) {
    m_ok = deflateInit2(&m_zs, level, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK;
    m_ready = m_ok;
  }
  ~DeflateWriter() {
    if (m_ready) deflateEnd(&m_zs);
  }
  bool ok() const { return m_ok; }
  const std::string& error() const { return m_error; }

  bool add(const void* data, size_t size) { return run(data, size, Z_NO_FLUSH); }
  bool finish() { return run(nullptr, 0, Z_FINISH); }

 private:
  bool run(const void* data, size_t size, int flush) {
    if (!m_ok) return false;
    m_zs.next_in = static_cast<Bytef*>(const_cast<void*>(data));
    m_zs.avail_in = static_cast<uInt>(size);
    for (;;) {
      m_zs.next_out = m_out.get();
      m_zs.avail_out = kWriteChunk;
      int result = deflate(&m_zs, flush);
      if (result == Z_STREAM_ERROR) return fail("compression failed");
      size_t produced = kWriteChunk - m_zs.avail_out;
      if (!put(m_out.get(), produced)) return false;
      if (flush == Z_FINISH ? result == Z_STREAM_END : m_zs.avail_out != 0) return true;
    }
  }

  bool put(const uint8_t* data, size_t size) {
    while (size != 0) {
      ssize_t n = ::write(m_fd, data, size);
      if (n < 0) {
        if (errno == EINTR) continue;
        return fail("cannot write the package: " + errno_text());
      }
      data += n;
      size -= static_cast<size_t>(n);
    }
    return true;
  }

  bool fail(const std::string& message) {
    m_ok = false;
    m_error = message;
    return false;
  }

  int m_fd;
  z_stream m_zs{};
  std::unique_ptr<uint8_t[]> m_out;
  bool m_ok = false;
  bool m_ready = false;
  std::string m_error;
};

// Streams one file's contents into the writer; exactly `file.size` bytes.
bool pack_file(const SourceFile& file, DeflateWriter& writer, uint8_t* buffer, uint64_t& done,
               uint64_t total, const Progress& progress, std::string& error) {
  int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = "cannot open " + file.path + ": " + errno_text();
    return false;
  }
  posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  uint64_t left = file.size;
  uint32_t crc = 0;
  bool ok = true;
  for (;;) {
    // One byte more than owed is asked for, to notice a file that grew.
    size_t want = static_cast<size_t>(std::min<uint64_t>(left + 1, kReadChunk));
    ssize_t n = ::read(fd, buffer, want);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = "cannot read " + file.path + ": " + errno_text();
      ok = false;
      break;
    }
    if (n == 0) break;
    if (uint64_t(n) > left) {
      error = file.path + " grew while it was packed";
      ok = false;
      break;
    }
    if (!writer.add(buffer, size_t(n))) {
      error = writer.error();
      ok = false;
      break;
    }
    if (file.checked) crc = layout::crc32_of(crc, buffer, size_t(n));
    left -= uint64_t(n);
    done += uint64_t(n);
    if (progress) progress(done, total);
  }
  close(fd);
  if (ok && left != 0) {
    error = file.path + " shrank while it was packed";
    ok = false;
  }
  if (ok && file.checked && crc != file.contentsCrc) {
    error = file.path + " changed while it was packed";
    ok = false;
  }
  return ok;
}

}  // namespace

std::u16string utf8_to_utf16(const std::string& text) {
  std::u16string out;
  out.reserve(text.size());
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  size_t n = text.size();
  for (size_t i = 0; i < n;) {
    unsigned char c = s[i];
    uint32_t cp = 0;
    size_t len = 0;
    if (c < 0x80) {
      cp = c;
      len = 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
      cp = c & 0x1F;
      len = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      cp = c & 0x0F;
      len = 3;
    } else if (c >= 0xF0 && c <= 0xF4) {
      cp = c & 0x07;
      len = 4;
    }
    bool valid = len != 0 && i + len <= n;
    for (size_t k = 1; valid && k < len; ++k) {
      if ((s[i + k] & 0xC0) != 0x80)
        valid = false;
      else
        cp = cp << 6 | (s[i + k] & 0x3F);
    }
    if (valid && ((len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) ||
                  (len == 4 && (cp < 0x10000 || cp > 0x10FFFF))))
      valid = false;
    if (!valid) {
      out.push_back(char16_t(0xDC00 + c));
      ++i;
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out.push_back(char16_t(0xD800 + (cp >> 10)));
      out.push_back(char16_t(0xDC00 + (cp & 0x3FF)));
    } else {
      out.push_back(char16_t(cp));
    }
    i += len;
  }
  return out;
}

std::string utf16_to_utf8(const std::u16string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    uint32_t cp = text[i];
    if (cp >= 0xDC80 && cp <= 0xDCFF) {  // a byte that was not valid UTF-8
      out.push_back(char(cp - 0xDC00));
      continue;
    }
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    }
    if (cp < 0x80) {
      out.push_back(char(cp));
    } else if (cp < 0x800) {
      out.push_back(char(0xC0 | cp >> 6));
      out.push_back(char(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
      out.push_back(char(0xE0 | cp >> 12));
      out.push_back(char(0x80 | (cp >> 6 & 0x3F)));
      out.push_back(char(0x80 | (cp & 0x3F)));
    } else {
      out.push_back(char(0xF0 | cp >> 18));
      out.push_back(char(0x80 | (cp >> 12 & 0x3F)));
      out.push_back(char(0x80 | (cp >> 6 & 0x3F)));
      out.push_back(char(0x80 | (cp & 0x3F)));
    }
  }
  return out;
}

bool filetime_from_unix(int64_t seconds, long nanoseconds, uint64_t& ticks) {
  if (seconds < -kEpochDifference) return false;
  ticks = uint64_t(seconds + kEpochDifference) * kTicksPerSecond + uint64_t(nanoseconds / 100);
  return true;
}

std::string format_filetime(uint64_t ticks) {
  int64_t seconds = int64_t(ticks / kTicksPerSecond) - kEpochDifference;
  unsigned fraction = unsigned(ticks % kTicksPerSecond);
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
  std::sort(files.begin(), files.end(), [](const SourceFile& a, const SourceFile& b) {
    return a.path < b.path;
  });
  return true;
}

bool compute_checks(std::vector<SourceFile>& files, std::string& error) {
  std::unique_ptr<uint8_t[]> buffer(new uint8_t[kReadChunk]);
  for (SourceFile& file : files) {
    int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
      error = "cannot open " + file.path + ": " + errno_text();
      return false;
    }
    posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    uint32_t crc = 0;
    uint64_t got = 0;
    ssize_t n;
    while ((n = ::read(fd, buffer.get(), kReadChunk)) != 0) {
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
        error = "cannot read " + file.path + ": " + errno_text();
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

bool encode_catalogue(const Header& header, const std::vector<SourceFile>& files,
                      std::string& bytes, std::string& error) {
  bytes.clear();
  put_u32(bytes, header.kind);
  if (header.kind == layout::kSingleLanguageKind) {
    put_string(bytes, header.single.title1);
    put_string(bytes, header.single.title2);
    put_string(bytes, header.single.descriptionRef);
  } else {
    put_u32(bytes, static_cast<uint32_t>(header.languages.size()));
    for (const Language& language : header.languages) {
      if (layout::language_record_size(language.code, language.title1, language.title2,
                                       language.descriptionRef) > UINT32_MAX) {
        error = "language texts too long";
        return false;
      }
      layout::put_language_record(bytes, language.code, language.title1, language.title2,
                                  language.descriptionRef);
    }
  }
  if (files.size() > UINT32_MAX) {
    error = "too many files";
    return false;
  }
  put_u32(bytes, static_cast<uint32_t>(files.size()));
  uint64_t offset = 0;
  for (const SourceFile& file : files) {
    std::string shown = utf16_to_utf8(file.name);
    if (file.size > UINT32_MAX) {
      error = shown + ": files of 4 GiB or more do not fit the package format";
      return false;
    }
    if (offset > UINT32_MAX) {
      error = shown + ": the package's contents pass 4 GiB before this file starts";
      return false;
    }
    if (layout::file_record_size(file.name, file.checked) > UINT32_MAX) {
      error = shown + ": name too long";
      return false;
    }
    layout::put_file_record(bytes, file.name, file.time, static_cast<uint32_t>(offset),
                            static_cast<uint32_t>(file.size), file.checked, file.contentsCrc);
    offset += file.size;
  }
  return true;
}

bool write_package(const std::string& output, const Header& header,
                   const std::vector<SourceFile>& files, int level, const Progress& progress,
                   std::string& error) {
  if (level < 0 || level > 9) {
    error = "compression level must be 0-9";
    return false;
  }
  std::string catalogue;
  if (!encode_catalogue(header, files, catalogue, error)) return false;
  uint64_t total = 0;
  for (const SourceFile& file : files) total += file.size;

  std::string staging = output + ".part";
  int fd = open(staging.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    error = "cannot create " + staging + ": " + errno_text();
    return false;
  }
  bool ok;
  {
    DeflateWriter writer(fd, level);
    ok = writer.ok() && writer.add(catalogue.data(), catalogue.size());
    if (!ok) error = writer.error().empty() ? "compression failed" : writer.error();
    std::unique_ptr<uint8_t[]> buffer(new uint8_t[kReadChunk]);
    uint64_t done = 0;
    for (size_t i = 0; ok && i < files.size(); ++i)
      ok = pack_file(files[i], writer, buffer.get(), done, total, progress, error);
    if (ok && !writer.finish()) {
      error = writer.error();
      ok = false;
    }
  }
  if (close(fd) != 0 && ok) {
    error = "cannot write " + staging + ": " + errno_text();
    ok = false;
  }
  if (ok && rename(staging.c_str(), output.c_str()) != 0) {
    error = "cannot rename " + staging + " to " + output + ": " + errno_text();
    ok = false;
  }
  if (!ok) unlink(staging.c_str());
  return ok;
}

}  // namespace tpk
