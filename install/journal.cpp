#include "install/journal.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cinttypes>
#include <cstdio>

#include "compat/text.h"

const char kJournalName[] = ".zqstp-journal";

namespace {

std::atomic<JournalStepHook> g_hook{nullptr};
std::atomic<unsigned> g_written{0};

std::string escape(const std::string& bytes) {
  std::string out;
  out.reserve(bytes.size());
  for (char c : bytes) {
    if (c == '\\') out += "\\\\";
    else if (c == '\n') out += "\\n";
    else if (c == '\t') out += "\\t";
    else out += c;
  }
  return out;
}

bool unescape(const std::string& text, std::string& bytes) {
  bytes.clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
      continue;
    }
    if (++i == text.size()) return false;
    switch (text[i]) {
      case '\\': bytes += '\\'; break;
      case 'n': bytes += '\n'; break;
      case 't': bytes += '\t'; break;
      default: return false;
    }
  }
  return true;
}

bool known(char op) {
  for (char c : {'T', 'M', 'D', 'N', 'S', 'W', 'C'})
    if (op == c) return true;
  return false;
}

}  // namespace

std::string encode_entry(const JournalEntry& e) {
  char numbers[160];
  std::snprintf(numbers, sizeof numbers, "%c\t%" PRIu64 "\t%" PRId64 ".%ld\t%" PRId64 ".%ld\t",
                char(e.op), e.inode, e.sec[0], e.nsec[0], e.sec[1], e.nsec[1]);
  return numbers + escape(narrow_lib(e.path)) + "\n";
}

bool decode_entry(const std::string& line, JournalEntry& e) {
  if (line.size() < 2 || !known(line[0]) || line[1] != '\t') return false;
  e.op = JournalOp(line[0]);
  int used = 0;
  long long s0, s1;
  unsigned long long inode;
  if (std::sscanf(line.c_str() + 2, "%llu\t%lld.%ld\t%lld.%ld\t%n", &inode, &s0, &e.nsec[0], &s1,
                  &e.nsec[1], &used) != 5 || used == 0)
    return false;
  e.inode = inode;
  e.sec[0] = s0;
  e.sec[1] = s1;
  std::string bytes;
  if (!unescape(line.substr(2 + size_t(used)), bytes)) return false;
  e.path = widen_lib(bytes);
  return true;
}

std::vector<JournalEntry> parse_journal(const std::string& text) {
  std::vector<JournalEntry> entries;
  size_t pos = 0;
  for (size_t end; (end = text.find('\n', pos)) != std::string::npos; pos = end + 1) {
    JournalEntry e;
    if (decode_entry(text.substr(pos, end - pos), e)) entries.push_back(e);
  }
  return entries;
}

int JournalFile::create(int dirFd) {
  close();
  m_fd = openat(dirFd, kJournalName, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC,
                0600);
  return m_fd < 0 ? errno : 0;
}

int JournalFile::append(const JournalEntry& entry) {
  if (m_fd < 0) return EBADF;
  const std::string line = encode_entry(entry);
  ssize_t n;
  do n = write(m_fd, line.data(), line.size());
  while (n < 0 && errno == EINTR);
  if (n < 0) return errno;
  if (size_t(n) != line.size()) return ENOSPC;
  const unsigned count = ++g_written;
  if (JournalStepHook hook = g_hook.load()) hook(count);
  return 0;
}

void JournalFile::close() {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
}

void set_journal_step_hook(JournalStepHook hook) { g_hook = hook; }
