#include "package/working_file.h"

#include <errno.h>
#include <fcntl.h>

#include <random>

#include "compat/file_ops.h"
#include "compat/text.h"

namespace {

std::string random_name() {
  static const char kChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device device;
  std::string name = "kpt";
  for (int i = 0; i < 6; ++i) name += kChars[device() % (sizeof kChars - 1)];
  return name;
}

// A new named file, its name removed as soon as it is open.
int create_named(const std::string& directory, int& fd) {
  int error = EEXIST;
  for (int attempt = 0; attempt < 100 && error == EEXIST; ++attempt) {
    const std::string path = directory + random_name();
    error = file_ops().open(AT_FDCWD, path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600, fd);
    if (!error) file_ops().unlink(AT_FDCWD, path, false);
  }
  return error;
}

}  // namespace

Status create_working_file(std::u16string& directory, HANDLE& handle) {
  std::u16string wide;
  FileSystem::GetTempPath(wide);
  const std::string dir = narrow_lib(wide);  // ends in "/"
  int fd = -1;
  int error = file_ops().open(AT_FDCWD, dir, O_TMPFILE | O_RDWR, 0600, fd);
  if (error == EOPNOTSUPP || error == EISDIR || error == EINVAL) error = create_named(dir, fd);
  if (error) return failure(ERROR_CANTWRITE, Operation::kCreateWorkFile, wide, error);
  directory = wide;
  handle = reinterpret_cast<HANDLE>(static_cast<intptr_t>(fd));
  return Status();
}
