#include "install/journal.h"

#include <errno.h>
#include <fcntl.h>
#include <zlib.h>

#include <cstring>

#include "compat/file_ops.h"

const char kJournalName[] = ".zqstp-journal";
const char kKeptMarkName[] = ".zqstp-kept";
const char kLengthMarkName[] = ".zqstp-length";

namespace {

// A record: u32 length of the body, u32 CRC-32 of the length's bytes and the
// body, then the body: op, inode, size, two times, the new-file flag, the
// path's length and the path. Numbers are little-endian.
constexpr size_t kHeadBytes = 8;
constexpr size_t kFixedBody = 1 + 8 + 8 + 8 + 4 + 8 + 4 + 1 + 4;
// No record is longer: a path is far shorter, so a larger length is damage.
constexpr uint32_t kLongestBody = kFixedBody + (1u << 20);

void put(std::string& out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(char((value >> (8 * i)) & 0xFF));
}

uint64_t get(const char* in, int bytes) {
  uint64_t value = 0;
  for (int i = 0; i < bytes; ++i) value |= uint64_t(uint8_t(in[i])) << (8 * i);
  return value;
}

uint32_t crc_of(const char* data, size_t size, uint32_t crc = 0) {
  return uint32_t(crc32(crc, reinterpret_cast<const Bytef*>(data), uInt(size)));
}

// The length mark: u64 length, u32 CRC-32 of that many journal bytes, u32
// CRC-32 of the twelve bytes before it.
std::string encode_mark(uint64_t length, uint32_t crc) {
  std::string mark;
  put(mark, length, 8);
  put(mark, crc, 4);
  put(mark, crc_of(mark.data(), mark.size()), 4);
  return mark;
}

bool known(uint8_t op) {
  for (char c : {'T', 'M', 'D', 'E', 'S', 'W', 'P', 'C'})
    if (op == uint8_t(c)) return true;
  return false;
}

// The body at `body` (`size` bytes, checked already) as an entry; false when
// its fields do not make a record.
bool decode_body(const char* body, size_t size, JournalEntry& e) {
  if (size < kFixedBody || !known(uint8_t(body[0]))) return false;
  e.op = JournalOp(uint8_t(body[0]));
  e.inode = get(body + 1, 8);
  e.size = get(body + 9, 8);
  e.sec[0] = int64_t(get(body + 17, 8));
  e.nsec[0] = long(get(body + 25, 4));
  e.sec[1] = int64_t(get(body + 29, 8));
  e.nsec[1] = long(get(body + 37, 4));
  e.fresh = body[41] != 0;
  const uint64_t pathBytes = get(body + 42, 4);
  if (pathBytes != size - kFixedBody || e.nsec[0] >= 1000000000 || e.nsec[1] >= 1000000000)
    return false;
  e.path.assign(body + kFixedBody, size_t(pathBytes));
  return e.path.find('\0') == std::string::npos;
}

}  // namespace

std::string encode_entry(const JournalEntry& e) {
  std::string body;
  body.reserve(kFixedBody + e.path.size());
  body.push_back(char(e.op));
  put(body, e.inode, 8);
  put(body, e.size, 8);
  put(body, uint64_t(e.sec[0]), 8);
  put(body, uint64_t(e.nsec[0]), 4);
  put(body, uint64_t(e.sec[1]), 8);
  put(body, uint64_t(e.nsec[1]), 4);
  body.push_back(e.fresh ? 1 : 0);
  put(body, e.path.size(), 4);
  body += e.path;
  std::string record;
  put(record, body.size(), 4);
  std::string checked = record + body;
  put(record, crc_of(checked.data(), checked.size()), 4);
  return record + body;
}

JournalText parse_journal(const std::string& bytes) {
  JournalText out;
  size_t pos = 0;
  while (pos < bytes.size()) {
    if (bytes.size() - pos < kHeadBytes) break;
    const uint32_t length = uint32_t(get(&bytes[pos], 4));
    if (length < kFixedBody || length > kLongestBody || bytes.size() - pos - kHeadBytes < length)
      break;
    std::string checked = bytes.substr(pos, 4) + bytes.substr(pos + kHeadBytes, length);
    JournalEntry e;
    if (uint32_t(get(&bytes[pos + 4], 4)) != crc_of(checked.data(), checked.size()) ||
        !decode_body(&bytes[pos + kHeadBytes], length, e))
      break;
    out.entries.push_back(std::move(e));
    pos += kHeadBytes + length;
  }
  out.clean = pos == bytes.size();
  return out;
}

bool journal_meets_mark(const std::string& bytes, const std::string& mark) {
  if (mark.empty()) return true;  // its run died before its first flush
  if (mark.size() != 16 || uint32_t(get(&mark[12], 4)) != crc_of(mark.data(), 12)) return false;
  const uint64_t length = get(&mark[0], 8);
  return length <= bytes.size() && uint32_t(get(&mark[8], 4)) == crc_of(bytes.data(), length);
}

int JournalFile::create(int dirFd) {
  close();
  m_length = 0;
  m_crc = 0;
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  int error = file_ops().open(dirFd, kJournalName, flags | O_APPEND, 0600, m_fd);
  if (!error) error = file_ops().open(dirFd, kLengthMarkName, flags, 0600, m_markFd);
  if (error) close();
  return error;
}

int JournalFile::append(const std::vector<JournalEntry>& entries) {
  if (m_fd < 0) return EBADF;
  std::string bytes;
  for (const JournalEntry& e : entries) bytes += encode_entry(e);
  size_t done = 0;
  if (int error = file_ops().write(m_fd, bytes.data(), bytes.size(), done)) return error;
  if (done != bytes.size()) return ENOSPC;
  m_dirty = true;
  m_length += bytes.size();
  m_crc = crc_of(bytes.data(), bytes.size(), m_crc);
  return 0;
}

int JournalFile::flush() {
  if (m_fd < 0 || !m_dirty) return 0;
  if (int error = file_ops().flush(m_fd)) return error;
  // Only what is on disk is marked, so the mark never claims more.
  const std::string mark = encode_mark(m_length, m_crc);
  int64_t at = 0;
  size_t done = 0;
  int error = file_ops().seek(m_markFd, 0, SEEK_SET, at);
  if (!error) error = file_ops().write(m_markFd, mark.data(), mark.size(), done);
  if (!error && done != mark.size()) error = ENOSPC;
  if (!error) error = file_ops().flush(m_markFd);
  if (error) return error;
  m_dirty = false;
  return 0;
}

void JournalFile::close() {
  if (m_fd >= 0) file_ops().close(m_fd);
  if (m_markFd >= 0) file_ops().close(m_markFd);
  m_fd = m_markFd = -1;
}
