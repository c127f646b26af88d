#include "package/working_file.h"

#include <errno.h>
#include <fcntl.h>

#include "compat/file_ops.h"
#include "compat/random_name.h"
#include "compat/text.h"

namespace {

// A new named file, its name removed as soon as it is open.
int create_named(const std::string& directory, int& fd) {
  int error = EEXIST;
  for (int attempt = 0; attempt < 100 && error == EEXIST; ++attempt) {
    const std::string path = directory + "kpt" + random_suffix();
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
  handle = handle_of(fd);
  return Status();
}
