#include "install/target_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "compat/file_system.h"
#include "compat/text.h"

namespace {

std::string parent_of(const std::string& path) {
  size_t slash = path.find_last_of('/', path.size() > 1 ? path.size() - 2 : 0);
  if (slash == std::string::npos || slash == 0) return "/";
  return path.substr(0, slash);
}

int open_directory(const std::string& path) {
  return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// Whether another run holds `dir` exclusively; the probe takes a shared
// lock for an instant and drops it.
bool held_elsewhere(const std::string& dir) {
  int fd = open_directory(dir);
  if (fd < 0) return false;
  bool held = flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(fd);
  return held;
}

}  // namespace

unsigned TargetLock::acquire(const std::u16string& targetDir, int& sysError) {
  release();
  sysError = 0;
  std::string dir = narrow_lib(targetDir);
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  // The nearest existing level of the target.
  struct stat st;
  while (dir != "/" && !(stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode)))
    dir = parent_of(dir);
  int fd = open_directory(dir);
  if (fd < 0) {
    sysError = errno;
    return ERROR_INVALID_PARAMETER;
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    sysError = errno;
    close(fd);
    return sysError == EWOULDBLOCK ? kTargetBusy : ERROR_INVALID_PARAMETER;
  }
  for (std::string up = dir; up != "/";) {
    up = parent_of(up);
    if (held_elsewhere(up)) {
      close(fd);
      sysError = EWOULDBLOCK;
      return kTargetBusy;
    }
  }
  m_fd = fd;
  return 0;
}

void TargetLock::release() {
  if (m_fd >= 0) close(m_fd);  // closing drops the lock
  m_fd = -1;
}
