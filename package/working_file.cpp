#include "package/working_file.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "compat/text.h"

namespace {

constexpr char kPrefix[] = "kpt";
constexpr size_t kNameLength = 3 + 6;  // the prefix and mkstemp's six characters

std::string temp_directory() {
  std::u16string dir;
  FileSystem::GetTempPath(dir);
  return narrow_lib(dir);  // ends in "/"
}

bool same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The name still leads to the open file: nobody removed or replaced it
// between its creation (or opening) and the lock.
bool name_holds(const std::string& path, int fd) {
  struct stat byName, byHandle;
  return fstat(fd, &byHandle) == 0 && byHandle.st_nlink > 0 && lstat(path.c_str(), &byName) == 0 &&
         same_file(byName, byHandle);
}

}  // namespace

Status create_working_file(std::u16string& path, HANDLE& handle) {
  const std::string directory = temp_directory();
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string name = directory + kPrefix + "XXXXXX";
    // O_EXCL creation: a link or file planted at the name makes it fail.
    int fd = mkostemp(&name[0], O_CLOEXEC);
    if (fd < 0) return failure(ERROR_CANTWRITE, Step::kCreateWorkFile, widen_lib(directory), errno);
    // Another start may take an unlocked new file for an orphan and remove
    // it before the lock is in place: then the name no longer holds, and a
    // new name is tried.
    if (flock(fd, LOCK_EX) == 0 && name_holds(name, fd)) {
      path = widen_lib(name);
      handle = reinterpret_cast<HANDLE>(static_cast<intptr_t>(fd));
      return Status();
    }
    close(fd);
  }
  return failure(ERROR_CANTWRITE, Step::kCreateWorkFile, widen_lib(directory), EEXIST);
}

unsigned remove_orphan_working_files() {
  const std::string directory = temp_directory();
  DIR* dir = opendir(directory.c_str());
  if (!dir) return 0;
  unsigned removed = 0;
  while (const dirent* entry = readdir(dir)) {
    if (std::strlen(entry->d_name) != kNameLength ||
        std::strncmp(entry->d_name, kPrefix, sizeof kPrefix - 1) != 0)
      continue;
    const std::string path = directory + entry->d_name;
    struct stat st;
    if (lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != getuid()) continue;
    int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) continue;
    // A live run holds the lock for as long as its file exists.
    if (flock(fd, LOCK_EX | LOCK_NB) == 0 && name_holds(path, fd) && unlink(path.c_str()) == 0)
      ++removed;
    close(fd);
  }
  closedir(dir);
  return removed;
}
