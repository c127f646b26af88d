#include "install/target_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "compat/file_ops.h"
#include "compat/file_system.h"
#include "install/backup_dir.h"

namespace {

// The lock file's name: the FNV-1a hash of the target's folded path.
std::string lock_name(const std::string& target) {
  uint64_t hash = 1469598103934665603ull;
  for (unsigned char c : target) hash = (hash ^ c) * 1099511628211ull;
  char name[24];
  std::snprintf(name, sizeof name, "%016llx.lock", static_cast<unsigned long long>(hash));
  return name;
}

// Opens this user's lock folder "zqstp-locks-<uid>[-K]" in the temporary
// directory, making it when missing. A name another user holds, or one that
// is a link or open to others, is passed over. -1 with `error` set when none
// can be had.
int open_lock_folder(std::string& path, int& error, bool make = true) {
  const std::string base = temp_directory() + "zqstp-locks-" + std::to_string(geteuid());
  int retries = 0;
  for (int k = 0; k < 100; ++k) {
    path = k ? base + "-" + std::to_string(k) : base;
    error = make ? file_ops().makeDirectory(path, 0700) : 0;
    const bool made = make && error == 0;
    if (error != 0 && error != EEXIST) return -1;
    int fd = -1;
    error = file_ops().open(AT_FDCWD, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW, 0, fd);
    if (error == ENOENT && !make) return -1;
    if (error == ENOENT && ++retries < 100) {
      --k;  // removed by a run that ended meanwhile: make it again
      continue;
    }
    if (error != 0 && made) {
      file_ops().unlink(AT_FDCWD, path, true);
      return -1;
    }
    // A link, a file or another user's folder: not ours, the next name is tried.
    if (error == ELOOP || error == ENOTDIR || error == EACCES) continue;
    if (error != 0) return -1;
    struct stat64 st;
    error = file_ops().stat(fd, std::string(), st, true);
    if (error == 0 && st.st_uid == geteuid() && (st.st_mode & 077) == 0) return fd;
    file_ops().close(fd);
    if (error != 0) {
      if (made) file_ops().unlink(AT_FDCWD, path, true);
      return -1;
    }
  }
  error = EEXIST;
  return -1;
}

// Takes the exclusive flock on `fd`. A start that clears stale lock files
// holds each for a few microseconds, so a lock found held is tried again
// for about a millisecond; a run holds its lock far longer, and a second
// run into its target is still refused at once. 0, EWOULDBLOCK or an errno.
int lock_unless_held(int fd) {
  for (int tries = 1;; ++tries) {
    const int error = file_ops().lock(fd, LOCK_EX);
    if (error != EWOULDBLOCK || tries == 5) return error;
    usleep(250);
  }
}

}  // namespace

unsigned TargetLock::acquire(const std::string& target, int& sysError) {
  release();
  sysError = 0;
  const std::string name = lock_name(target);
  std::string dirPath;
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int dirFd = open_lock_folder(dirPath, sysError);
    if (dirFd < 0) return ERROR_CANTWRITE;
    int fd = -1;
    int error = file_ops().open(dirFd, name, O_RDWR | O_CREAT | O_NOFOLLOW, 0600, fd);
    if (!error) error = lock_unless_held(fd);
    struct stat64 held, named;
    if (!error && file_ops().stat(fd, std::string(), held, true) == 0 &&
        file_ops().stat(dirFd, name, named, false) == 0 && held.st_ino == named.st_ino &&
        held.st_dev == named.st_dev) {
      keep_open_in_commands(fd);
      m_dirFd = dirFd;
      m_fd = fd;
      m_dirPath = dirPath;
      m_name = name;
      return 0;
    }
    // Not held: closed without removing anything, since the file or its
    // folder may be another run's by now.
    if (fd >= 0) file_ops().close(fd);
    file_ops().close(dirFd);
    if (error == EWOULDBLOCK) return kTargetBusy;
    // ENOENT: the folder went meanwhile. No error: the file was removed by
    // the run that held it. Either way the name's new file is tried.
    if (error != 0 && error != ENOENT) {
      sysError = error;
      return ERROR_CANTWRITE;
    }
  }
  sysError = EAGAIN;
  return ERROR_CANTWRITE;
}

void TargetLock::release() {
  if (m_fd >= 0) {
    // Removed while still held, so that nobody locks a file that is going.
    file_ops().unlink(m_dirFd, m_name, false);
    stop_keeping_open_in_commands(m_fd);
    file_ops().close(m_fd);
  }
  if (m_dirFd >= 0) {
    file_ops().unlink(AT_FDCWD, m_dirPath, true);  // only when empty; fails otherwise
    file_ops().close(m_dirFd);
  }
  m_fd = m_dirFd = -1;
}

void remove_stale_target_locks() {
  std::string path;
  int error = 0;
  const int dirFd = open_lock_folder(path, error, false);
  if (dirFd < 0) return;
  std::vector<std::string> names;
  file_ops().list(dirFd, names);
  for (const std::string& name : names) {
    int fd = -1;
    if (name.size() < 5 || name.compare(name.size() - 5, 5, ".lock") != 0 ||
        file_ops().open(dirFd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, 0, fd) != 0)
      continue;
    struct stat64 held, named;
    if (file_ops().lock(fd, LOCK_EX) == 0 && file_ops().stat(fd, std::string(), held, true) == 0 &&
        file_ops().stat(dirFd, name, named, false) == 0 && held.st_ino == named.st_ino &&
        S_ISREG(held.st_mode))
      file_ops().unlink(dirFd, name, false);
    file_ops().close(fd);
  }
  file_ops().close(dirFd);
  file_ops().unlink(AT_FDCWD, path, true);  // only when empty
}
