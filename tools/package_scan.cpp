#include "tools/package_scan.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>

#include "compat/status.h"
#include "compat/unicode.h"
#include "package/contents_check.h"
#include "package/inflate_decoder.h"
#include "tools/monotonic_clock.h"

namespace {

void report_damage(const char* path, const char* fault) {
  std::fprintf(stderr, "tpk-list: %s: %s: %s\n", path, kDamagedPackage, fault);
}

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
  z_stream m_zs{};
  const uint8_t* m_data;
  uint64_t m_left;
  bool m_ended = false;
};

// Feeds every checked file's contents to its check as the decoded stream
// goes past (entries in order of their offsets, any overlap allowed).
class ContentsChecker : public InflateSink {
 public:
  ContentsChecker(const std::vector<FileEntry>& files, uint64_t dataStart)
      : m_files(files), m_dataStart(dataStart) {
    for (size_t i = 0; i < files.size(); ++i)
      if (files[i].hasCheck) m_order.push_back(i);
    std::sort(m_order.begin(), m_order.end(),
              [&](size_t a, size_t b) { return files[a].offset < files[b].offset; });
  }
  void write(const uint8_t* data, size_t size) override {
    uint64_t begin = m_position, end = m_position + size;
    m_position = end;
    if (end <= m_dataStart) return;
    for (; m_next < m_order.size() && m_dataStart + m_files[m_order[m_next]].offset < end; ++m_next)
      m_active.push_back({m_order[m_next], ContentsCheck(m_files[m_order[m_next]])});
    for (size_t k = 0; k < m_active.size();) {
      Active& a = m_active[k];
      const FileEntry& f = m_files[a.index];
      uint64_t from = std::max(begin, m_dataStart + f.offset);
      uint64_t to = std::min(end, m_dataStart + f.offset + f.size);
      if (from < to) a.check.update(data + (from - begin), size_t(to - from));
      if (m_dataStart + f.offset + f.size <= end) {
        if (!a.check.matches()) m_mismatched.push_back(a.index);
        m_active.erase(m_active.begin() + long(k));
      } else {
        ++k;
      }
    }
  }
  // Indexes of the files whose contents do not match, in the order found
  // (a file not wholly decoded counts as not matching).
  std::vector<size_t> mismatched() {
    for (Active& a : m_active) m_mismatched.push_back(a.index);
    for (; m_next < m_order.size(); ++m_next)
      if (m_files[m_order[m_next]].size != 0 || !ContentsCheck(m_files[m_order[m_next]]).matches())
        m_mismatched.push_back(m_order[m_next]);
    m_active.clear();
    return m_mismatched;
  }

 private:
  struct Active {
    size_t index;
    ContentsCheck check;
  };
  const std::vector<FileEntry>& m_files;
  uint64_t m_dataStart;
  std::vector<size_t> m_order;
  size_t m_next = 0;
  std::vector<Active> m_active;
  std::vector<size_t> m_mismatched;
  uint64_t m_position = 0;
};

// Decodes the package once more and checks every checked file's contents;
// reports each mismatch and returns how many there were.
size_t check_contents(const char* path, const uint8_t* data, uint64_t size,
                      const std::vector<FileEntry>& files, uint64_t dataStart) {
  ContentsChecker checker(files, dataStart);
  inflate_stream(data, size, checker);
  std::vector<size_t> bad = checker.mismatched();
  for (size_t i : bad) {
    const std::string fault =
        "the contents of " + utf16_to_utf8(files[i].name) + " do not match its record";
    report_damage(path, fault.c_str());
  }
  return bad.size();
}

}  // namespace

bool scan_package(const char* path, const uint8_t* data, uint64_t size, PackageScan& scan) {
  // First pass: the decoded size, and whether the stream decodes at all.
  CountingSink counter(isatty(STDERR_FILENO));
  InflateOutcome outcome = inflate_stream(data, size, counter);
  counter.done();
  if (outcome.code != 0) {
    report_damage(path, "invalid compressed data");
    return false;
  }
  scan.decoded = counter.total();
  scan.reachedEnd = outcome.reachedEnd;

  // Second pass: the header and catalogue, decoded only as far as they go.
  InflatingSource source(data, size);
  if (read_catalogue(source, scan.decoded, scan.languages, scan.files, scan.info) != 0) {
    report_damage(path, scan.info.fault.empty() ? "unreadable catalogue" : scan.info.fault.c_str());
    return false;
  }

  // Third pass: the contents of every checked file.
  return check_contents(path, data, size, scan.files, scan.info.dataStart) == 0;
}
