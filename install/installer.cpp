#include "install/installer.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <unordered_set>

#include "compat/text.h"
#include "install/install_process_data.h"
#include "install/target_path.h"
#include "package/contents_check.h"
#include "texts/resources.h"

namespace {

// A write that moved fewer bytes than asked (WriteFile reports it only
// through the count) and a read that found no bytes while some were owed.
constexpr unsigned kShortWriteError = ERROR_CANTWRITE;
constexpr unsigned kTruncatedSourceError = ERROR_INVALID_DATA;

// How many written bytes are handed to the disk at a time.
constexpr uint64_t kWritebackChunk = 8u << 20;

// Starts writing a range of the file to the disk, without waiting for it.
void start_writeback(HANDLE file, uint64_t offset, uint64_t length) {
  sync_file_range(static_cast<int>(reinterpret_cast<intptr_t>(file)), off64_t(offset),
                  off64_t(length), SYNC_FILE_RANGE_WRITE);
}

unsigned percent_of(size_t index, size_t count) {
  return static_cast<unsigned>(uint64_t(index) * 100 / count);
}

// Positions the working file at the 64-bit `offset`. SetFilePointer adds the
// sign-extended low half to high * 2^32, so the high half is chosen to
// compensate for a low half with its top bit set.
unsigned seek_to(HANDLE file, uint64_t offset) {
  long low = static_cast<int32_t>(static_cast<uint32_t>(offset));
  long high = static_cast<long>((int64_t(offset) - int64_t(low)) >> 32);
  uint32_t reachedLow = FileSystem::SetFilePointer(file, low, &high, FILE_BEGIN);
  uint64_t reached = (uint64_t(uint32_t(high)) << 32) | reachedLow;
  if (reached == offset) return 0;
  unsigned code = FileSystem::GetLastError();
  return code ? code : ERROR_INVALID_PARAMETER;
}

// Copies `size` bytes of the working file, from where it stands, into
// `target` through the reader's buffer. Every read asks for the whole buffer;
// only what belongs to the entry is written.
unsigned copy_contents(PackageReader& reader, uint64_t size, HANDLE target, ContentsCheck& check) {
  uint64_t remaining = size;
  uint64_t written = 0, handedToDisk = 0;
  while (remaining > 0) {
    unsigned got = 0;
    if (unsigned code = FileSystem::ReadFile(reader.handle, reader.buffer.get(), reader.bufferSize,
                                             &got, nullptr))
      return code;
    if (got == 0) return kTruncatedSourceError;  // the working file ends early
    if (remaining < got) {
      got = static_cast<unsigned>(remaining);
      remaining = 0;
    } else {
      remaining -= got;
    }
    check.update(reader.buffer.get(), got);
    unsigned moved = 0;
    FileSystem::WriteFile(target, reader.buffer.get(), got, &moved, nullptr);
    if (moved != got) return kShortWriteError;
    written += got;
    // Large files start going to the disk while the copy goes on, so that
    // the flush at the end of the run finds little left to write.
    if (written - handedToDisk >= kWritebackChunk) {
      start_writeback(target, handedToDisk, written - handedToDisk);
      handedToDisk = written;
    }
  }
  if (written > handedToDisk) start_writeback(target, handedToDisk, written - handedToDisk);
  return 0;
}

// Why mkdir -p could not make `dir`, found after the fact: the first level
// that is not a directory (ENOTDIR), or the first missing level whose parent
// cannot be written. 0 when nothing explains it. `level` names the place.
int why_not_made(const std::string& dir, std::string& level) {
  std::string prefix;
  size_t pos = 0;
  while (pos < dir.size()) {
    size_t end = dir.find('/', pos);
    if (end == std::string::npos) end = dir.size();
    const std::string part = dir.substr(pos, end - pos);
    pos = end + 1;
    if (part.empty()) continue;
    const std::string parent = prefix.empty() ? "/" : prefix;
    prefix += "/" + part;
    level = prefix;
    if (part.size() > NAME_MAX) return ENAMETOOLONG;
    struct stat st;
    if (stat(prefix.c_str(), &st) == 0) {
      if (!S_ISDIR(st.st_mode)) return ENOTDIR;
      continue;
    }
    if (errno != ENOENT) return errno;
    return access(parent.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
  }
  return 0;
}

}  // namespace

unsigned Installer::fail(unsigned code, Step step, const std::u16string& path, int sysError,
                         std::string detail) {
  m_failure = ::failure(code, step, path, sysError, std::move(detail));
  return m_failure.code;
}

unsigned Installer::prepareTarget(const PackageReader& reader, const std::u16string& targetDir) {
  std::u16string tmp;
  FileSystem::GetTempPath(tmp);
  size_t longest = 0;
  for (const FileEntry& entry : reader.files)
    longest = std::max(longest, narrow_lib(entry.name).size());
  if (!fits_path_max(targetDir, longest, tmp))
    return fail(ERROR_INVALID_NAME, Step::kStartRun, targetDir, ENAMETOOLONG);
  int sysError = 0;
  if (unsigned code = m_lock.acquire(targetDir, sysError))
    return fail(code, code == kTargetBusy ? Step::kLockTarget : Step::kStartRun, targetDir,
                code == kTargetBusy ? 0 : sysError);
  return 0;
}

unsigned Installer::run(InstallProcessData* data) {
  m_data = data;
  m_failure = Status();
  PackageReader* reader = nullptr;
  std::u16string givenDir;
  data->get(reader, givenDir);
  // Files are placed below the resolved target; progress shows the spelling given.
  const std::u16string templatesDir = resolve_target(givenDir);

  if (!reader) {
    fail(ERROR_INVALID_PARAMETER, Step::kReadPackage, std::u16string(), 0);
    return stopOnError(ERROR_INVALID_PARAMETER, 0);
  }
  if (!templatesDir.empty()) {
    if (unsigned code = prepareTarget(*reader, templatesDir)) {
      // Nothing was changed: publish the error, nothing to roll back.
      m_data->setInstallState(code, LoadResString("IDS_INSTALL_ERROR"), 0);
      return code;
    }
  }
  if (unsigned code = m_rollback.start(templatesDir)) {
    fail(code, Step::kStartRun, templatesDir, m_rollback.journalError());
    return stopOnError(code, 0);
  }

  const size_t count = reader->files.size();
  for (size_t i = 0; i < count; ++i) {
    const FileEntry& entry = reader->files[i];
    std::u16string name = entry.name;
    replace_all(name, kBadPathSeparator, kPathSeparator);
    const std::u16string target = templatesDir + name;
    const unsigned percent = percent_of(i, count);
    data->setInstallState(0, givenDir + name, percent);

    if (compareFiles(target, entry.time)) {
      if (unsigned code = installEntry(*reader, entry, target)) return stopOnError(code, percent);
    }

    if (data->isCancelled()) {
      unsigned code = m_rollback.rollback(ERROR_CANCELLED);
      m_lock.release();
      data->setInstallState(code, LoadResString("IDS_CANCEL_FINISH"), percent);
      return code;
    }
  }

  // The installed files reach the disk before their backups are discarded.
  if (unsigned code = flushPlaced()) return stopOnError(code, 100);
  m_rollback.stop();
  m_lock.release();
  data->setInstallState(0, LoadResString("IDS_INSTALL_FINISH"), 100);
  Sleep(m_finishPauseMs);
  return 0;
}

unsigned Installer::installEntry(PackageReader& reader, const FileEntry& entry,
                                 const std::u16string& target) {
  unsigned code = m_rollback.storeRBFile(target);
  const bool isNew = code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
  if (!isNew && code != 0) {
    if (int error = m_rollback.journalError()) return fail(code, Step::kStartRun, target, error);
    if (code == ERROR_ALREADY_EXISTS) return fail(code, Step::kSaveOldFile, target, EISDIR);
    return fail(code, Step::kSaveOldFile, target, 0, "it could not be moved aside");
  }

  const std::u16string dir = parent_of(target);
  if (!dir.empty() && (code = m_rollback.makeDirectoryTree(dir))) {
    if (int error = m_rollback.journalError()) return fail(code, Step::kStartRun, target, error);
    std::string level;
    int why = why_not_made(narrow_lib(dir), level);
    // A file standing where a folder must go: the file cannot be created.
    if (why == ENOTDIR) return fail(code, Step::kCreateFile, target, why);
    return fail(code, Step::kCreateDirectory, level.empty() ? dir : widen_lib(level), why,
                why ? std::string() : "mkdir -p failed");
  }
  if (isNew && (code = m_rollback.addNewFile(target)))
    return fail(code, Step::kStartRun, target, m_rollback.journalError());
  return placeContents(reader, entry, target);
}

unsigned Installer::placeContents(PackageReader& reader, const FileEntry& entry,
                                  const std::u16string& target) {
  // A name of this run beside the target that nothing else uses.
  const std::u16string dir = parent_of(target);
  const std::u16string stem = dir + u"/.zqstp" + string_uito(m_rollback.backupNumber(), 10) + u"-";
  std::u16string temp;
  struct stat st;
  do temp = stem + string_uito(++m_tempCount, 10) + u".part";
  while (lstat(narrow_lib(temp).c_str(), &st) == 0);
  if (unsigned code = m_rollback.addTempFile(temp))
    return fail(code, Step::kStartRun, target, m_rollback.journalError());

  const std::string tempBytes = narrow_lib(temp);
  int fd = open(tempBytes.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0660);
  if (fd < 0) {
    int error = errno;
    return fail(setLastErrorByErrNo(error), Step::kCreateFile, target, error);
  }
  HANDLE file = reinterpret_cast<HANDLE>(static_cast<intptr_t>(fd));
  unsigned code = seek_to(reader.handle, entry.offset);
  if (code) {
    FileSystem::CloseHandle(file);
    return fail(code, Step::kReadPackage, target, 0, "the working file cannot be positioned");
  }
  errno = 0;
  ContentsCheck check(entry);
  code = copy_contents(reader, entry.size, file, check);
  if (code) {
    int error = errno;
    FileSystem::CloseHandle(file);
    if (code == kShortWriteError) return fail(code, Step::kWriteFile, target, error ? error : ENOSPC);
    return fail(code, Step::kReadPackage, target, code == kTruncatedSourceError ? 0 : error,
                code == kTruncatedSourceError ? "the working file ends early" : std::string());
  }
  FileSystem::SetFileTime(file, nullptr, nullptr, &entry.time);
  if (close(fd) != 0) {
    int error = errno;
    return fail(setLastErrorByErrNo(error), Step::kWriteFile, target, error);
  }
  // The contents are written, not yet in place: damaged ones never are.
  if (!check.matches())
    return fail(kTruncatedSourceError, Step::kCheckContents, target, 0,
                "the contents do not match the package's check value");
  if (rename(tempBytes.c_str(), narrow_lib(target).c_str()) != 0) {
    int error = errno;
    return fail(setLastErrorByErrNo(error), Step::kPlaceFile, target, error);
  }
  m_placed.push_back(target);
  return 0;
}

// Per file rather than one syncfs: the working file usually shares the
// target's file system, and syncfs would write all of it to the disk too.
// The writes of each file were started while it was copied.
unsigned Installer::flushPlaced() {
  std::unordered_set<std::u16string> dirs;
  auto flush = [](const std::string& path, int flags) {
    int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | flags);
    if (fd < 0) return errno;
    int error = fdatasync(fd) == 0 ? 0 : errno;
    close(fd);
    return error;
  };
  for (const std::u16string& file : m_placed) {
    if (int error = flush(narrow_lib(file), 0))
      return fail(ERROR_CANTWRITE, Step::kFlush, file, error);
    dirs.insert(parent_of(file));
  }
  for (const std::u16string& dir : dirs)
    if (int error = flush(narrow_lib(dir), O_DIRECTORY))
      return fail(ERROR_CANTWRITE, Step::kFlush, dir, error);
  return 0;
}

bool Installer::compareFiles(const std::u16string& path, const _FILETIME& packageTime) {
  // Anything but a regular file is handed on to be saved or refused; the
  // file itself is never opened, so one that cannot be read keeps its time.
  struct stat64 st;
  if (stat64(narrow_lib(path).c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return true;
  const _FILETIME installed = TimespecToFileTime(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
  return FileTimeToU64(installed) < FileTimeToU64(packageTime);
}

unsigned Installer::stopOnError(unsigned code, unsigned percent) {
  if (code == 0) code = ERROR_INVALID_PARAMETER;  // a failure is never reported as success
  if (m_failure.ok()) m_failure = ::failure(code, Step::kNone);
  m_failure.code = code;
  m_data->setInstallState(code, LoadResString("IDS_INSTALL_ERROR"), static_cast<int>(percent));
  code = m_rollback.rollback(code);
  if (!m_rollback.keptBackupDir().empty() && m_failure.detail.empty() && m_failure.sysError == 0)
    m_failure.detail = "the backup " + narrow_lib(m_rollback.keptBackupDir()) + " was kept";
  m_lock.release();
  return code;
}
