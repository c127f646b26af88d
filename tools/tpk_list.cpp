// tpk-list: prints and checks the header and catalogue of a package.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "package/catalogue.h"
#include "package/inflate_decoder.h"
#include "tools/monotonic_clock.h"
#include "tools/tpk_writer.h"

namespace {

const char kUsage[] =
    "Usage: tpk-list PACKAGE\n"
    "\n"
    "Prints the header kind, the languages and the catalogue of PACKAGE (name,\n"
    "size, last-write time in UTC to 100 ns) and checks that the package decodes\n"
    "and that every entry is acceptable and lies inside the data area.\n"
    "Each file line: last-write time, size, offset in the data area, name.\n"
    "Exit status: 0 for a sound package, 1 for a damaged one, 2 when the\n"
    "package cannot be read or the command line is wrong.\n";

// Counts the decoded bytes, showing the count now and then when asked to.
class CountingSink : public InflateSink {
 public:
  explicit CountingSink(bool show) : m_show(show), m_last(now_seconds()) {}
  void write(const uint8_t*, size_t size) override {
    m_total += size;
    if (!m_show) return;
    double t = now_seconds();
    if (t - m_last < 0.2) return;
    m_last = t;
    m_shown = true;
    std::fprintf(stderr, "\rtpk-list: decoding %.1f MiB", double(m_total) / double(1 << 20));
  }
  uint64_t total() const { return m_total; }
  void done() {
    if (m_shown) std::fputc('\n', stderr);
  }

 private:
  bool m_show;
  uint64_t m_total = 0;
  double m_last;
  bool m_shown = false;
};

// The decoded stream, pulled front to back (only as far as it is read).
class InflatingSource : public ByteSource {
 public:
  InflatingSource(const uint8_t* data, uint64_t size) : m_data(data), m_left(size) {
    inflateInit2(&m_zs, -MAX_WBITS);
  }
  ~InflatingSource() override { inflateEnd(&m_zs); }
  unsigned read(uint8_t* buffer, size_t count, size_t* got) override {
    *got = 0;
    while (count != 0 && !m_ended) {
      if (m_zs.avail_in == 0 && m_left != 0) {
        uInt slice = m_left > UINT32_MAX ? UINT32_MAX : uInt(m_left);
        m_zs.next_in = const_cast<Bytef*>(m_data);
        m_zs.avail_in = slice;
        m_data += slice;
        m_left -= slice;
      }
      uInt want = count > UINT32_MAX ? UINT32_MAX : uInt(count);
      m_zs.next_out = buffer;
      m_zs.avail_out = want;
      int result = inflate(&m_zs, Z_NO_FLUSH);
      size_t produced = want - m_zs.avail_out;
      *got += produced;
      buffer += produced;
      count -= produced;
      if (result == Z_STREAM_END || (result == Z_BUF_ERROR && m_zs.avail_in == 0 && m_left == 0))
        m_ended = true;
      else if (result != Z_OK)
        return ERROR_INVALID_DATA;
      else if (produced == 0 && m_zs.avail_in == 0 && m_left == 0)
        m_ended = true;
    }
    return 0;
  }

 private:
  static constexpr unsigned ERROR_INVALID_DATA = 13;
  z_stream m_zs{};
  const uint8_t* m_data;
  uint64_t m_left;
  bool m_ended = false;
};

std::string quoted(const std::u16string& text) { return "\"" + tpk::utf16_to_utf8(text) + "\""; }

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (argc != 2 || argv[1][0] == '-') {
    std::fputs(kUsage, stderr);
    return 2;
  }
  const char* path = argv[1];
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    std::fprintf(stderr, "tpk-list: cannot read %s: %s\n", path,
                 fd < 0 ? std::strerror(errno) : "not a regular file");
    return 2;
  }
  uint64_t size = uint64_t(st.st_size);
  const uint8_t* data = nullptr;
  if (size != 0) {
    void* m = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (m == MAP_FAILED) {
      std::fprintf(stderr, "tpk-list: cannot map %s: %s\n", path, std::strerror(errno));
      return 2;
    }
    data = static_cast<const uint8_t*>(m);
  }

  // First pass: the decoded size, and whether the stream decodes at all.
  CountingSink counter(isatty(STDERR_FILENO));
  InflateOutcome outcome = inflate_stream(data, size, counter);
  counter.done();
  if (outcome.code != 0) {
    std::fprintf(stderr, "tpk-list: %s: damaged package: invalid compressed data\n", path);
    return 1;
  }

  // Second pass: the header and catalogue, decoded only as far as they go.
  InflatingSource source(data, size);
  std::vector<LanguageEntry> languages;
  std::vector<FileEntry> files;
  CatalogueInfo info;
  if (read_catalogue(source, counter.total(), languages, files, info) != 0) {
    std::fprintf(stderr, "tpk-list: %s: damaged package: %s\n", path,
                 info.fault.empty() ? "unreadable catalogue" : info.fault.c_str());
    return 1;
  }

  uint64_t contents = 0;
  for (const FileEntry& f : files) contents += f.size;
  std::printf("package: %s\n", path);
  std::printf("compressed: %llu bytes, decoded: %llu bytes%s\n", (unsigned long long)size,
              (unsigned long long)counter.total(),
              outcome.reachedEnd ? "" : " (stream ends without its end marker)");
  std::printf("header kind: %u\n", info.kind);
  std::printf("languages: %zu\n", languages.size());
  for (const LanguageEntry& l : languages)
    std::printf("  %s %s %s %s\n", quoted(l.language).c_str(), quoted(l.title1).c_str(),
                quoted(l.title2).c_str(), quoted(l.descriptionRef).c_str());
  std::printf("files: %zu, contents: %llu bytes, data area: %llu bytes at %llu\n", files.size(),
              (unsigned long long)contents,
              (unsigned long long)(counter.total() - info.dataStart),
              (unsigned long long)info.dataStart);
  for (const FileEntry& f : files) {
    uint64_t ticks = (uint64_t(f.time.dwHighDateTime) << 32) | f.time.dwLowDateTime;
    std::printf("  %s %12u %10llu %s\n", tpk::format_filetime(ticks).c_str(), f.size,
                (unsigned long long)f.offset, tpk::utf16_to_utf8(f.name).c_str());
  }
  return 0;
}
