#include "compat/file_ops.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <system_error>
#include <thread>

extern char** environ;

namespace {

FileOps g_system;
std::atomic<FileOps*> g_ops{&g_system};

int result(int value) { return value < 0 ? errno : 0; }

// Flushes in flight at once: enough for the file system to commit many files
// in one go while each waits for its own.
constexpr size_t kFlushesAtOnce = 8;
// Commands running at once: process start-up is CPU work, and a second core
// halves it.
constexpr size_t kCommandsAtOnce = 2;

std::mutex g_keptMutex;
std::vector<int> g_keptOpen;

}  // namespace

void keep_open_in_commands(int fd) {
  std::lock_guard<std::mutex> guard(g_keptMutex);
  g_keptOpen.push_back(fd);
}

void stop_keeping_open_in_commands(int fd) {
  std::lock_guard<std::mutex> guard(g_keptMutex);
  g_keptOpen.erase(std::remove(g_keptOpen.begin(), g_keptOpen.end(), fd), g_keptOpen.end());
}

FileOps& file_ops() { return *g_ops.load(); }

FileOps* set_file_ops(FileOps* ops) { return g_ops.exchange(ops ? ops : &g_system); }

int FileOps::open(int dirFd, const std::string& path, int flags, mode_t mode, int& fd) {
  int opened;
  do opened = ::openat(dirFd, path.c_str(), flags | O_CLOEXEC, mode);
  while (opened < 0 && errno == EINTR);
  if (opened < 0) return errno;
  fd = opened;
  return 0;
}

int FileOps::close(int fd) { return result(::close(fd)); }

int FileOps::read(int fd, void* buffer, size_t count, size_t& done) {
  ssize_t n;
  do n = ::read(fd, buffer, count);
  while (n < 0 && errno == EINTR);
  done = n < 0 ? 0 : size_t(n);
  return n < 0 ? errno : 0;
}

int FileOps::write(int fd, const void* buffer, size_t count, size_t& done) {
  ssize_t n;
  do n = ::write(fd, buffer, count);
  while (n < 0 && errno == EINTR);
  done = n < 0 ? 0 : size_t(n);
  return n < 0 ? errno : 0;
}

int FileOps::seek(int fd, int64_t offset, int whence, int64_t& position) {
  off64_t at = lseek64(fd, offset, whence);
  if (at < 0) return errno;
  position = at;
  return 0;
}

int FileOps::truncate(int fd, int64_t length) { return result(ftruncate64(fd, length)); }

int FileOps::stat(int dirFd, const std::string& path, struct stat64& st, bool follow) {
  int flags = (follow ? 0 : AT_SYMLINK_NOFOLLOW) | (path.empty() ? AT_EMPTY_PATH : 0);
  return result(fstatat64(dirFd, path.c_str(), &st, flags));
}

int FileOps::rename(int fromDir, const std::string& from, int toDir, const std::string& to) {
  return result(::renameat(fromDir, from.c_str(), toDir, to.c_str()));
}

int FileOps::makeDirectory(const std::string& path, mode_t mode) {
  return result(::mkdir(path.c_str(), mode));
}

int FileOps::unlink(int dirFd, const std::string& path, bool directory) {
  return result(unlinkat(dirFd, path.c_str(), directory ? AT_REMOVEDIR : 0));
}

int FileOps::flush(int fd) { return result(fdatasync(fd)); }

void FileOps::flushAll(const std::vector<int>& fds, std::vector<int>& errors) {
  errors.assign(fds.size(), 0);
  std::atomic<size_t> next{0};
  auto work = [&] {
    for (size_t i; (i = next++) < fds.size();) errors[i] = FileOps::flush(fds[i]);
  };
  std::vector<std::thread> helpers;
  try {
    while (helpers.size() + 1 < std::min(fds.size(), kFlushesAtOnce)) helpers.emplace_back(work);
  } catch (const std::system_error&) {
    // No more threads: the ones there are (this one at least) do the rest.
  }
  work();
  for (std::thread& helper : helpers) helper.join();
}

int FileOps::startWriteback(int fd, int64_t offset, int64_t length) {
  return result(sync_file_range(fd, offset, length, SYNC_FILE_RANGE_WRITE));
}

int FileOps::lock(int fd, int operation) { return result(flock(fd, operation | LOCK_NB)); }

int FileOps::chmod(int fd, mode_t mode) { return result(fchmod(fd, mode)); }

int FileOps::setTimes(int dirFd, const std::string& path, const struct timespec times[2],
                      bool follow) {
  if (path.empty()) return result(futimens(dirFd, times));
  return result(utimensat(dirFd, path.c_str(), times, follow ? 0 : AT_SYMLINK_NOFOLLOW));
}

int FileOps::list(int dirFd, std::vector<std::string>& names) {
  int copy = dup(dirFd);
  if (copy < 0) return errno;
  DIR* dir = fdopendir(copy);
  if (!dir) {
    int error = errno;
    ::close(copy);
    return error;
  }
  rewinddir(dir);
  names.clear();
  errno = 0;
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  int error = errno;
  closedir(dir);
  return error;
}

namespace {

int start_shell(const std::string& command, pid_t& pid) {
  char shell[] = "/bin/sh";
  char flag[] = "-c";
  char* argv[] = {shell, flag, const_cast<char*>(command.c_str()), nullptr};
  posix_spawn_file_actions_t actions;
  if (int error = posix_spawn_file_actions_init(&actions)) return error;
  int error = 0;
  {
    // A descriptor duplicated onto itself loses its close-on-exec flag.
    std::lock_guard<std::mutex> guard(g_keptMutex);
    for (int fd : g_keptOpen)
      if (!error) error = posix_spawn_file_actions_adddup2(&actions, fd, fd);
  }
  if (!error) error = posix_spawn(&pid, "/bin/sh", &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

int wait_for(pid_t pid, int& status) {
  while (waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) return errno;
  return 0;
}

}  // namespace

int FileOps::run(const std::string& command, int& status) {
  pid_t pid;
  if (int error = start_shell(command, pid)) return error;
  return wait_for(pid, status);
}

void FileOps::runAll(const std::vector<std::string>& commands, std::vector<int>& statuses,
                     std::vector<int>& errors) {
  statuses.assign(commands.size(), 0);
  errors.assign(commands.size(), 0);
  std::vector<pid_t> pids(commands.size(), -1);
  size_t waited = 0;
  for (size_t i = 0; i < commands.size(); ++i) {
    for (; waited + kCommandsAtOnce <= i; ++waited)
      if (pids[waited] >= 0) errors[waited] = wait_for(pids[waited], statuses[waited]);
    errors[i] = start_shell(commands[i], pids[i]);
    if (errors[i]) pids[i] = -1;
  }
  for (; waited < commands.size(); ++waited)
    if (pids[waited] >= 0) errors[waited] = wait_for(pids[waited], statuses[waited]);
}

int FileOps::freeSpace(const std::string& path, uint64_t& bytes) {
  struct statvfs64 st;
  if (statvfs64(path.c_str(), &st) != 0) return errno;
  bytes = uint64_t(st.f_bfree) * uint64_t(st.f_frsize);
  return 0;
}
