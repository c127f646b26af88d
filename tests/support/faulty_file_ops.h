// A file layer for tests that passes every call to the system's, except that
// a test can fail any call with a chosen errno (the call is not made), stop
// the process there, and cut the power: what was written but not flushed
// is lost, as after a machine that stops at that instant.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "compat/file_ops.h"

namespace testsupport {

class FaultyFileOps : public FileOps {
 public:
  // Called before every call with its number (from 1), its name and the
  // path it names (empty when it names none); returns 0 to let it happen, or
  // the errno it fails with.
  std::function<int(unsigned call, const char* name, const std::string& path)> before;
  unsigned calls = 0;

  // What was written since the last flush of each file is lost.
  void cutPower();

  int open(int dirFd, const std::string& path, int flags, mode_t mode, int& fd) override;
  int close(int fd) override;
  int read(int fd, void* buffer, size_t count, size_t& done) override;
  int write(int fd, const void* buffer, size_t count, size_t& done) override;
  int seek(int fd, int64_t offset, int whence, int64_t& position) override;
  int truncate(int fd, int64_t length) override;
  int stat(int dirFd, const std::string& path, struct stat64& st, bool follow) override;
  int rename(int fromDir, const std::string& from, int toDir, const std::string& to) override;
  int makeDirectory(const std::string& path, mode_t mode) override;
  int unlink(int dirFd, const std::string& path, bool directory) override;
  int flush(int fd) override;
  // One after another, each through flush() (or run()), so that the call
  // numbers stay the same from one test run to the next.
  void flushAll(const std::vector<int>& fds, std::vector<int>& errors) override;
  int startWriteback(int fd, int64_t offset, int64_t length) override;
  int lock(int fd, int operation) override;
  int chmod(int fd, mode_t mode) override;
  int setTimes(int dirFd, const std::string& path, const struct timespec times[2],
               bool follow) override;
  int list(int dirFd, std::vector<std::string>& names) override;
  int run(const std::string& command, int& status) override;
  void runAll(const std::vector<std::string>& commands, std::vector<int>& statuses,
              std::vector<int>& errors) override;
  int freeSpace(const std::string& path, uint64_t& bytes) override;

 private:
  int check(const char* name, const std::string& path = std::string());
  // Files written since their last flush: a descriptor of their own and the
  // size they had on disk, by device and inode.
  struct Unflushed {
    int fd;
    int64_t durableSize;
  };
  std::map<std::pair<dev_t, ino_t>, Unflushed> m_unflushed;
};

// Puts a file layer in use for the lifetime of the object.
class ScopedFileOps {
 public:
  explicit ScopedFileOps(FileOps* ops) : m_previous(set_file_ops(ops)) {}
  ~ScopedFileOps() { set_file_ops(m_previous); }
  ScopedFileOps(const ScopedFileOps&) = delete;
  ScopedFileOps& operator=(const ScopedFileOps&) = delete;

 private:
  FileOps* m_previous;
};

}  // namespace testsupport
