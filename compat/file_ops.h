// The calls that the package reader and the installation engine make on
// files and folders, behind one small interface. Each returns 0 or the
// errno value of the failure, and nothing else is ever consulted: a caller
// that ignores the result ignores the failure. The process uses one
// instance, the system's; tests install one that fails a chosen call, or
// stops the process at it, to see that every failure leaves the files as
// they were before or as they are after.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

class FileOps {
 public:
  virtual ~FileOps() = default;

  // openat(2); `dirFd` AT_FDCWD for a plain path. O_CLOEXEC is always added.
  virtual int open(int dirFd, const std::string& path, int flags, mode_t mode, int& fd);
  virtual int close(int fd);
  // One read(2), EINTR retried; `done` 0 at the end of the file.
  virtual int read(int fd, void* buffer, size_t count, size_t& done);
  // One write(2), EINTR retried; a short count is the caller's to judge.
  virtual int write(int fd, const void* buffer, size_t count, size_t& done);
  virtual int seek(int fd, int64_t offset, int whence, int64_t& position);
  virtual int truncate(int fd, int64_t length);
  // fstatat(2): `follow` false looks at a link itself. An empty `path`
  // describes `dirFd`.
  virtual int stat(int dirFd, const std::string& path, struct stat64& st, bool follow);
  // renameat(2); AT_FDCWD for plain paths.
  virtual int rename(int fromDir, const std::string& from, int toDir, const std::string& to);
  // mkdir(2) of one level.
  virtual int makeDirectory(const std::string& path, mode_t mode);
  // unlinkat(2); `directory` removes an empty folder.
  virtual int unlink(int dirFd, const std::string& path, bool directory);
  // fdatasync(2).
  virtual int flush(int fd);
  // fdatasync(2) of every descriptor, several at a time on threads of its
  // own, so that the file system can put them on disk together; `errors[i]`
  // is the result for `fds[i]`. A layer that overrides flush() overrides
  // this too (the system's does not call the override).
  virtual void flushAll(const std::vector<int>& fds, std::vector<int>& errors);
  // Starts writing a range to the disk without waiting (sync_file_range).
  virtual int startWriteback(int fd, int64_t offset, int64_t length);
  // flock(2), never waiting.
  virtual int lock(int fd, int operation);
  virtual int chmod(int fd, mode_t mode);
  // utimensat(2) on `path` below `dirFd` (following a link only when asked),
  // or on `dirFd` itself for an empty path.
  virtual int setTimes(int dirFd, const std::string& path, const struct timespec times[2],
                       bool follow = false);
  // The entry names of the folder open as `dirFd`, "." and ".." left out.
  virtual int list(int dirFd, std::vector<std::string>& names);
  // Runs `command` with /bin/sh -c; `status` is the raw wait status. An
  // error only when no shell could be started.
  virtual int run(const std::string& command, int& status);
  // Runs every command as run() does, two at a time; `statuses[i]` and
  // `errors[i]` belong to `commands[i]`. A layer that overrides run()
  // overrides this too.
  virtual void runAll(const std::vector<std::string>& commands, std::vector<int>& statuses,
                      std::vector<int>& errors);
  // Free bytes for the user of the file system holding `path`.
  virtual int freeSpace(const std::string& path, uint64_t& bytes);
};

// Descriptors that every command run() starts keeps open while it runs. A
// run's locks are held this way, so that a command still running after the
// run was killed keeps the run alive to a recovery until it ends.
void keep_open_in_commands(int fd);
void stop_keeping_open_in_commands(int fd);

// The layer in use.
FileOps& file_ops();
// Puts `ops` in use (null: the system's again) and returns the one it
// replaces. For tests; the program never calls it.
FileOps* set_file_ops(FileOps* ops);
