// Writing a package: the header and catalogue bytes, then every file's
// contents, as one raw deflate stream.
#include "tools/tpk_writer.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "package/package_layout.h"

namespace tpk {

namespace {

constexpr size_t kWriteChunk = 1 << 18;

using layout::put_string;
using layout::put_u32;

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
        return fail(std::string("cannot write the package: ") + std::strerror(errno));
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
    error = "cannot open " + file.path + ": " + std::strerror(errno);
    return false;
  }
  posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  uint64_t left = file.size;
  uint32_t crc = 0;
  bool ok = true;
  for (;;) {
    // One byte more than owed is asked for, to notice a file that grew.
    size_t want = static_cast<size_t>(std::min<uint64_t>(left + 1, kSourceReadChunk));
    ssize_t n = ::read(fd, buffer, want);
    if (n < 0) {
      if (errno == EINTR) continue;
      error = "cannot read " + file.path + ": " + std::strerror(errno);
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
    error = "cannot create " + staging + ": " + std::strerror(errno);
    return false;
  }
  bool ok;
  {
    DeflateWriter writer(fd, level);
    ok = writer.ok() && writer.add(catalogue.data(), catalogue.size());
    if (!ok) error = writer.error().empty() ? "compression failed" : writer.error();
    std::unique_ptr<uint8_t[]> buffer(new uint8_t[kSourceReadChunk]);
    uint64_t done = 0;
    for (size_t i = 0; ok && i < files.size(); ++i)
      ok = pack_file(files[i], writer, buffer.get(), done, total, progress, error);
    if (ok && !writer.finish()) {
      error = writer.error();
      ok = false;
    }
  }
  if (close(fd) != 0 && ok) {
    error = "cannot write " + staging + ": " + std::strerror(errno);
    ok = false;
  }
  if (ok && rename(staging.c_str(), output.c_str()) != 0) {
    error = "cannot rename " + staging + " to " + output + ": " + std::strerror(errno);
    ok = false;
  }
  if (!ok) unlink(staging.c_str());
  return ok;
}

}  // namespace tpk
