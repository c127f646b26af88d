// Writing starter configuration files: the new text is staged in the same
// directory, flushed to disk and renamed over the old file, so a reader (or a
// crash) sees either the old file or the new one, never a torn one.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "compat/random_name.h"
#include "compat/status.h"
#include "compat/text.h"
#include "starter/config_file.h"
#include "starter/config_file_io.h"

namespace {

constexpr unsigned kCannotOpen = 1;
constexpr unsigned kWriteFailed = 2;

// The file that is really replaced: the target of a symbolic link (so the
// link stays a link), else the path itself. False for a link that leads to
// nothing (its target missing, or a loop): such a link is never replaced.
bool resolve_target(const std::string& path, std::string& target) {
  target = path;
  struct stat st;
  if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return true;
  char resolved[PATH_MAX];
  if (stat(path.c_str(), &st) != 0 || !realpath(path.c_str(), resolved)) return false;
  target = resolved;
  return true;
}

// A new file beside the target that is removed again unless it was renamed
// over the target.
class StagingFile {
 public:
  StagingFile() = default;
  ~StagingFile() {
    if (m_file) std::fclose(m_file);
    if (!m_path.empty() && !m_committed) unlink(m_path.c_str());
  }

  StagingFile(const StagingFile&) = delete;
  StagingFile& operator=(const StagingFile&) = delete;

  // Creates the file ("<target>.new-XXXXXX", mode 0666 less the umask, or the
  // mode of the old file when there is one). 0, or the errno of the failure.
  int create(const std::string& target, const struct stat* old) {
    int fd = -1;
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
      m_path = target + ".new-" + random_suffix();
      fd = open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
      int error = errno;
      m_path.clear();
      return error;
    }
    if (old) (void)fchmod(fd, old->st_mode & 07777);
    m_file = fdopen(fd, "w");
    if (!m_file) {
      int error = errno;
      close(fd);
      return error;
    }
    return 0;
  }

  FILE* stream() const { return m_file; }

  // Flushes the text to disk, closes the file and renames it over `target`.
  // 0, or the errno of the step that failed.
  int commit(const std::string& target) {
    int error = 0;
    if (std::fflush(m_file) != 0 || std::ferror(m_file) || fsync(fileno(m_file)) != 0)
      error = errno ? errno : EIO;
    if (std::fclose(m_file) != 0 && error == 0) error = errno;
    m_file = nullptr;
    if (error == 0 && rename(m_path.c_str(), target.c_str()) != 0) error = errno;
    if (error != 0) return error;
    m_committed = true;
    sync_directory(target);
    return 0;
  }

 private:
  // Makes the rename itself durable (best effort).
  static void sync_directory(const std::string& target) {
    size_t slash = target.rfind('/');
    std::string dir = slash == std::string::npos ? "." : target.substr(0, slash + 1);
    int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    (void)fsync(fd);
    close(fd);
  }

  std::string m_path;
  FILE* m_file = nullptr;
  bool m_committed = false;
};

}  // namespace

Status write_config_file(const std::u16string& path, const ConfigFile& config) {
  // The new text is narrow whatever the old file was (UTF-16 included).
  std::string target;
  if (!resolve_target(narrow_lib(path), target))
    return failure(kCannotOpen, Operation::kWriteStarter, path, 0, "a link that leads nowhere");
  struct stat old;
  bool existed = stat(target.c_str(), &old) == 0;
  // Only a regular file is replaced: a FIFO, a device or a directory in its
  // place is left alone (and never opened).
  if (existed && S_ISDIR(old.st_mode))
    return failure(kCannotOpen, Operation::kWriteStarter, path, EISDIR);
  if (existed && !S_ISREG(old.st_mode))
    return failure(kCannotOpen, Operation::kWriteStarter, path, 0, "not a regular file");
  // What could not be opened for writing in place is not replaced either.
  if (existed && access(target.c_str(), W_OK) != 0)
    return failure(kCannotOpen, Operation::kWriteStarter, path, errno);

  StagingFile staging;
  if (int error = staging.create(target, existed ? &old : nullptr))
    return failure(kCannotOpen, Operation::kWriteStarter, path, error);
  // "key=value" and a line feed per value; a NUL in a key or value is
  // written like any other character.
  for (const ConfigFile::Entry& entry : config.entries()) {
    const std::string key = narrow_all(entry.key) + "=";
    for (const std::u16string& value : entry.values) {
      const std::string line = key + narrow_all(value) + "\n";
      if (std::fwrite(line.data(), 1, line.size(), staging.stream()) != line.size())
        return failure(kWriteFailed, Operation::kWriteStarter, path, errno);
    }
  }
  if (int error = staging.commit(target))
    return failure(kWriteFailed, Operation::kWriteStarter, path, error);
  return Status{};
}
