#include "support/faulty_file_ops.h"

#include <sys/stat.h>
#include <unistd.h>

namespace testsupport {

int FaultyFileOps::check(const char* name, const std::string& path) {
  ++calls;
  return before ? before(calls, name, path) : 0;
}

void FaultyFileOps::cutPower() {
  for (auto& [key, file] : m_unflushed) {
    (void)!ftruncate(file.fd, file.durableSize);
    ::close(file.fd);
  }
  m_unflushed.clear();
}

int FaultyFileOps::open(int dirFd, const std::string& path, int flags, mode_t mode, int& fd) {
  if (int e = check("open", path)) return e;
  return FileOps::open(dirFd, path, flags, mode, fd);
}
int FaultyFileOps::close(int fd) {
  if (int e = check("close")) return e;
  return FileOps::close(fd);
}
int FaultyFileOps::read(int fd, void* buffer, size_t count, size_t& done) {
  if (int e = check("read")) return e;
  return FileOps::read(fd, buffer, count, done);
}
int FaultyFileOps::write(int fd, const void* buffer, size_t count, size_t& done) {
  if (int e = check("write")) return e;
  struct stat64 st;
  if (fstat64(fd, &st) == 0 && S_ISREG(st.st_mode) && !m_unflushed.count({st.st_dev, st.st_ino}))
    m_unflushed[{st.st_dev, st.st_ino}] = {dup(fd), int64_t(st.st_size)};
  return FileOps::write(fd, buffer, count, done);
}
int FaultyFileOps::seek(int fd, int64_t offset, int whence, int64_t& position) {
  if (int e = check("seek")) return e;
  return FileOps::seek(fd, offset, whence, position);
}
int FaultyFileOps::truncate(int fd, int64_t length) {
  if (int e = check("truncate")) return e;
  return FileOps::truncate(fd, length);
}
int FaultyFileOps::stat(int dirFd, const std::string& path, struct stat64& st, bool follow) {
  if (int e = check("stat", path)) return e;
  return FileOps::stat(dirFd, path, st, follow);
}
int FaultyFileOps::rename(int fromDir, const std::string& from, int toDir, const std::string& to) {
  if (int e = check("rename", from)) return e;
  return FileOps::rename(fromDir, from, toDir, to);
}
int FaultyFileOps::makeDirectory(const std::string& path, mode_t mode) {
  if (int e = check("mkdir", path)) return e;
  return FileOps::makeDirectory(path, mode);
}
int FaultyFileOps::unlink(int dirFd, const std::string& path, bool directory) {
  if (int e = check("unlink", path)) return e;
  return FileOps::unlink(dirFd, path, directory);
}
int FaultyFileOps::flush(int fd) {
  if (int e = check("flush")) return e;
  int error = FileOps::flush(fd);
  struct stat64 st;
  if (!error && fstat64(fd, &st) == 0) {
    auto it = m_unflushed.find({st.st_dev, st.st_ino});
    if (it != m_unflushed.end()) {
      ::close(it->second.fd);
      m_unflushed.erase(it);
    }
  }
  return error;
}
void FaultyFileOps::flushAll(const std::vector<int>& fds, std::vector<int>& errors) {
  errors.clear();
  for (int fd : fds) errors.push_back(flush(fd));
}
int FaultyFileOps::startWriteback(int fd, int64_t offset, int64_t length) {
  if (int e = check("writeback")) return e;
  return FileOps::startWriteback(fd, offset, length);
}
int FaultyFileOps::lock(int fd, int operation) {
  if (int e = check("lock")) return e;
  return FileOps::lock(fd, operation);
}
int FaultyFileOps::chmod(int fd, mode_t mode) {
  if (int e = check("chmod")) return e;
  return FileOps::chmod(fd, mode);
}
int FaultyFileOps::setTimes(int dirFd, const std::string& path, const struct timespec times[2],
                            bool follow) {
  if (int e = check("times", path)) return e;
  return FileOps::setTimes(dirFd, path, times, follow);
}
int FaultyFileOps::list(int dirFd, std::vector<std::string>& names) {
  if (int e = check("list")) return e;
  return FileOps::list(dirFd, names);
}
int FaultyFileOps::run(const std::string& command, int& status) {
  // A command that fails says so only through its exit status.
  if (check("run", command)) {
    status = 1 << 8;
    return 0;
  }
  return FileOps::run(command, status);
}
void FaultyFileOps::runAll(const std::vector<std::string>& commands, std::vector<int>& statuses,
                           std::vector<int>& errors) {
  statuses.assign(commands.size(), 0);
  errors.assign(commands.size(), 0);
  for (size_t i = 0; i < commands.size(); ++i) errors[i] = run(commands[i], statuses[i]);
}
int FaultyFileOps::freeSpace(const std::string& path, uint64_t& bytes) {
  if (int e = check("free")) return e;
  return FileOps::freeSpace(path, bytes);
}

}  // namespace testsupport
