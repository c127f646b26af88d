#include "install/installer.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>

#include "compat/file_ops.h"
#include "compat/text.h"
#include "install/backup_dir.h"
#include "install/install_process_data.h"
#include "install/paths.h"
#include "package/contents_check.h"
#include "package/replace_rule.h"

namespace {

// A write that moved fewer bytes than asked (WriteFile reports it only
// through the count) and a read that found no bytes while some were owed.
constexpr unsigned kShortWriteError = ERROR_CANTWRITE;
constexpr unsigned kTruncatedSourceError = ERROR_INVALID_DATA;

// How many files a group holds: their records reach the disk together, and
// their temporary files stay open until they are on disk themselves.
constexpr size_t kGroupFiles = 128;
// How many written bytes are handed to the disk at a time.
constexpr uint64_t kWritebackChunk = 8u << 20;

unsigned percent_of(size_t index, size_t count) {
  return static_cast<unsigned>(uint64_t(index) * 100 / count);
}

// Positions the working file at the 64-bit `offset`.
unsigned seek_to(HANDLE file, uint64_t offset) {
  if (seek_file(file, offset, FILE_BEGIN) == offset) return 0;
  unsigned code = FileSystem::GetLastError();
  return code ? code : ERROR_INVALID_PARAMETER;
}

// Copies `size` bytes of the working file, from where it stands, into the
// file open as `fd` through the reader's buffer. Every read asks for the
// whole buffer; only what belongs to the entry is written. `error` is the
// system's reason of a failed write.
unsigned copy_contents(PackageReader& reader, uint64_t size, int fd, ContentsCheck& check,
                       int& error) {
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
    size_t moved = 0;
    error = file_ops().write(fd, reader.buffer.get(), got, moved);
    if (moved != got) {
      if (!error) error = ENOSPC;
      return kShortWriteError;
    }
    written += got;
    // Large files start going to the disk while the copy goes on, so that
    // the flush at the end of the group finds little left to write.
    if (written - handedToDisk >= kWritebackChunk) {
      file_ops().startWriteback(fd, int64_t(handedToDisk), int64_t(written - handedToDisk));
      handedToDisk = written;
    }
  }
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
    if (part.empty() || part == ".") continue;
    const std::string parent = prefix.empty() ? "/" : prefix;
    prefix = fold_path(prefix + "/" + part);
    level = prefix;
    if (part.size() > NAME_MAX) return ENAMETOOLONG;
    struct stat64 st;
    int error = file_ops().stat(AT_FDCWD, prefix, st, true);
    if (error == 0) {
      if (!S_ISDIR(st.st_mode)) return ENOTDIR;
      continue;
    }
    if (error != ENOENT) return error;
    return access(parent.c_str(), W_OK | X_OK) == 0 ? 0 : errno;
  }
  return 0;
}

}  // namespace

Installer::~Installer() { closeGroup(); }

unsigned Installer::fail(unsigned code, Operation operation, const std::string& path, int sysError,
                         std::string detail) {
  m_failure = ::failure(code, operation, widen_lib(path), sysError, std::move(detail));
  return m_failure.code;
}

// Checks what must hold before anything is changed, locks the target and
// starts the journal. 0, or the code with m_failure set (and published).
unsigned Installer::start(const std::u16string& givenDir) {
  auto refuse = [this](unsigned code) {
    // Nothing was changed: publish the error, nothing to roll back.
    m_data->setInstallState(code, RunPhase::kFailed, std::u16string(), 0);
    return code;
  };
  if (givenDir.empty())
    return refuse(
        fail(ERROR_PATH_NOT_FOUND, Operation::kStartRun, std::string(), 0, "no target folder"));
  if (Status unsafe = check_temp_directory(); !unsafe.ok()) {
    m_failure = unsafe;
    return refuse(unsafe.code);
  }
  size_t existing = 0;
  const std::string target = fold_path(spell_target(narrow_lib(givenDir), existing));
  int sysError = 0;
  if (unsigned code = m_lock.acquire(target, sysError))
    return refuse(fail(code, code == kTargetBusy ? Operation::kLockTarget : Operation::kStartRun,
                       target, sysError));
  if (unsigned code = m_rollback.start(givenDir)) {
    fail(code, Operation::kStartRun, target, m_rollback.journalError());
    return stopOnError(code, 0);
  }
  return 0;
}

unsigned Installer::run(InstallProcessData* data) {
  m_data = data;
  m_failure = Status();
  PackageReader* reader = nullptr;
  std::u16string givenDir;
  data->get(reader, givenDir);
  if (!reader) {
    fail(ERROR_INVALID_PARAMETER, Operation::kReadPackage, std::string(), 0);
    return stopOnError(ERROR_INVALID_PARAMETER, 0);
  }
  if (unsigned code = start(givenDir)) return code;

  const size_t count = reader->files.size();
  for (size_t first = 0; first < count;) {
    unsigned code = planGroup(*reader, first);
    if (code == 0) code = actGroup(*reader, givenDir, count);
    if (m_cancelled) return cancelRun(percent_of(m_acting, count));
    if (code != 0) {
      const size_t failed = m_group.empty() ? first : m_acting;
      if (m_group.empty()) {
        std::u16string name = reader->files[first].name;
        replace_all(name, kBadPathSeparator, kPathSeparator);
        data->setInstallState(0, RunPhase::kCopying, givenDir + name,
                              int(percent_of(first, count)));
      }
      return stopOnError(code, percent_of(failed, count));
    }
    first = m_group.back().index + 1;
    closeGroup();
  }

  // The installed files reach the disk before their backups are discarded.
  if (unsigned code = flushFolders()) return stopOnError(code, 100);
  if (unsigned code = m_rollback.stop()) {
    fail(code, Operation::kFlush, m_rollback.target(), m_rollback.journalError());
    return stopOnError(code, 100);
  }
  m_lock.release();
  data->setInstallState(0, RunPhase::kFinished, std::u16string(), 100);
  finishing_pause(m_finishPauseMs);
  return 0;
}

unsigned Installer::planGroup(const PackageReader& reader, size_t first) {
  closeGroup();
  // Paths a change of the group makes or fills: a later entry that lands on
  // one of them is planned only after the group is done.
  std::unordered_set<std::string> files, folders;
  const std::string& target = m_rollback.target();
  for (size_t i = first; i < reader.files.size() && m_group.size() < kGroupFiles; ++i) {
    Work work;
    work.index = i;
    std::u16string name = reader.files[i].name;
    replace_all(name, kBadPathSeparator, kPathSeparator);
    const std::string spelled = m_rollback.spelledTarget() + narrow_lib(name);
    work.target = fold_path(spelled);
    work.spelledDir = spelled.substr(0, std::max<size_t>(spelled.rfind('/'), 1));
    bool affected = files.count(work.target) || folders.count(work.target);
    for (std::string dir = parent_of(work.target); !affected && is_below(dir, target);
         dir = parent_of(dir))
      affected = files.count(dir) != 0;
    if (affected && !m_group.empty()) break;
    if (unsigned code = planEntry(reader.files[i], work)) {
      if (m_group.empty()) return code;
      m_failure = Status();  // planned again once the group is done
      break;
    }
    if (work.write) {
      files.insert(work.target);
      for (std::string dir = parent_of(work.target); is_below(dir, target); dir = parent_of(dir))
        if (!folders.insert(dir).second) break;
    }
    m_group.push_back(std::move(work));
  }
  // The group's records reach the disk before any of its changes.
  if (unsigned code = m_rollback.barrier())
    return fail(code, Operation::kStartRun, m_group.empty() ? target : m_group[0].target,
                m_rollback.journalError());
  return 0;
}

unsigned Installer::planEntry(const FileEntry& entry, Work& work) {
  // The same rule as compareFiles, except that a status that cannot be read
  // for another reason than absence fails the entry: the file there might
  // be newer, and it is never replaced on a guess.
  struct stat64 st;
  int error = file_ops().stat(AT_FDCWD, work.target, st, true);
  if (error == 0 && !replaced_by_package(st, entry.time)) return 0;
  if (error != 0 && error != ENOENT && error != ENOTDIR && error != ENAMETOOLONG)
    return fail(setLastErrorByErrNo(error), Operation::kCreateFile, work.target, error);
  work.write = true;
  // A name longer than any the file system holds cannot be created.
  if (work.target.size() - work.target.rfind('/') - 1 > NAME_MAX)
    return fail(ERROR_INVALID_PARAMETER, Operation::kCreateFile, work.target, ENAMETOOLONG);
  unsigned code = m_rollback.prepareStore(work.target, work.move);
  work.fresh = code == ERROR_FILE_NOT_FOUND;
  if (code == ERROR_ALREADY_EXISTS) return fail(code, Operation::kSaveOldFile, work.target, EISDIR);
  if (code != 0 && !work.fresh)
    return fail(code, Operation::kSaveOldFile, work.target, 0, "it could not be moved aside");
  m_rollback.prepareDirectory(work.spelledDir);
  return m_rollback.prepareTempFile(work.target, work.temp);
}

unsigned Installer::actGroup(PackageReader& reader, const std::u16string& givenDir, size_t count) {
  const Work* unmade = makeGroupFolders();
  for (Work& work : m_group) {
    m_acting = work.index;
    const FileEntry& entry = reader.files[work.index];
    std::u16string name = entry.name;
    replace_all(name, kBadPathSeparator, kPathSeparator);
    m_data->setInstallState(0, RunPhase::kCopying, givenDir + name,
                            int(percent_of(work.index, count)));
    if (work.write) {
      if (work.move) {
        if (unsigned code = m_rollback.moveAside(work.target))
          return fail(code, Operation::kSaveOldFile, work.target, 0, "it could not be moved aside");
      }
      if (&work == unmade) return failFolder(work);
      if (unsigned code = writeContents(reader, entry, work)) return code;
    }
    if (m_data->isCancelled()) {
      m_cancelled = true;
      return 0;
    }
  }
  return placeGroup();
}

const Installer::Work* Installer::makeGroupFolders() {
  std::vector<std::string> dirs;
  std::vector<const Work*> owners;
  for (const Work& work : m_group)
    if (work.write) {
      dirs.push_back(work.spelledDir);
      owners.push_back(&work);
    }
  const size_t failed = m_rollback.makeDirectories(dirs);
  return failed == std::string::npos ? nullptr : owners[failed];
}

unsigned Installer::failFolder(const Work& work) {
  std::string level;
  int why = why_not_made(work.spelledDir, level);
  // A file standing where a folder must go: the file cannot be created.
  if (why == ENOTDIR) return fail(ERROR_PATH_NOT_FOUND, Operation::kCreateFile, work.target, why);
  return fail(ERROR_PATH_NOT_FOUND, Operation::kCreateDirectory,
              level.empty() ? parent_of(work.target) : level, why,
              why ? std::string() : "mkdir -p failed");
}

// The folder and name a path is used by: the whole path as it is, or, when
// it is too long for one call, the folder opened on its own and the name.
std::pair<int, std::string> Installer::place(Work& work, const std::string& path) {
  if (path.size() < PATH_MAX) return {AT_FDCWD, path};
  if (work.dirFd < 0)
    file_ops().open(AT_FDCWD, parent_of(work.target), O_PATH | O_DIRECTORY, 0, work.dirFd);
  return {work.dirFd, path.substr(path.rfind('/') + 1)};
}

unsigned Installer::writeContents(PackageReader& reader, const FileEntry& entry, Work& work) {
  const auto [dir, name] = place(work, work.temp);
  if (int error =
          file_ops().open(dir, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0660, work.fd))
    return fail(setLastErrorByErrNo(error), Operation::kCreateFile, work.target, error);
  if (unsigned code = seek_to(reader.handle, entry.offset))
    return fail(code, Operation::kReadPackage, work.target, 0,
                "the working file cannot be positioned");
  ContentsCheck check(entry);
  int error = 0;
  if (unsigned code = copy_contents(reader, entry.size, work.fd, check, error)) {
    if (code == kShortWriteError) return fail(code, Operation::kWriteFile, work.target, error);
    return fail(code, Operation::kReadPackage, work.target, 0,
                code == kTruncatedSourceError ? "the working file ends early" : std::string());
  }
  // The contents are written, not yet in place: damaged ones never are.
  if (!check.matches())
    return fail(kTruncatedSourceError, Operation::kCheckContents, work.target, 0,
                "the contents do not match the package's check value");
  // A file without the package's time would pass for newer than it is.
  int64_t seconds;
  long nanoseconds;
  FileTimeToTimespec(entry.time, seconds, nanoseconds);
  const struct timespec times[2] = {{time_t(seconds), nanoseconds}, {time_t(seconds), nanoseconds}};
  struct stat64 st;
  if ((error = file_ops().setTimes(work.fd, std::string(), times)) ||
      (error = file_ops().stat(work.fd, std::string(), st, true)))
    return fail(setLastErrorByErrNo(error), Operation::kWriteFile, work.target, error);
  file_ops().startWriteback(work.fd, 0, 0);
  return m_rollback.recordPlaced(work.target, st.st_ino, uint64_t(st.st_size), st.st_mtim,
                                 work.fresh);
}

unsigned Installer::placeGroup() {
  // The records of the placed files reach the disk before any takes its place.
  if (unsigned code = m_rollback.barrier())
    return fail(code, Operation::kStartRun, m_group[0].target, m_rollback.journalError());
  for (Work& work : m_group) {
    if (!work.write) continue;
    m_acting = work.index;
    const auto [fromDir, from] = place(work, work.temp);
    const auto [toDir, to] = place(work, work.target);
    if (int error = file_ops().rename(fromDir, from, toDir, to))
      return fail(setLastErrorByErrNo(error), Operation::kPlaceFile, work.target, error);
    m_placedFolders.insert(parent_of(work.target));
  }
  // Each file is flushed through the descriptor it was written with.
  std::vector<int> fds;
  std::vector<const Work*> flushed;
  for (const Work& work : m_group)
    if (work.fd >= 0) {
      fds.push_back(work.fd);
      flushed.push_back(&work);
    }
  std::vector<int> errors;
  file_ops().flushAll(fds, errors);
  closeFiles();
  for (size_t i = 0; i < errors.size(); ++i)
    if (errors[i]) return fail(ERROR_CANTWRITE, Operation::kFlush, flushed[i]->target, errors[i]);
  return 0;
}

unsigned Installer::flushFolders() {
  const std::vector<std::string> dirs(m_placedFolders.begin(), m_placedFolders.end());
  for (size_t first = 0; first < dirs.size(); first += kGroupFiles) {
    const size_t end = std::min(dirs.size(), first + kGroupFiles);
    std::vector<int> fds;
    std::vector<const std::string*> opened;
    int error = 0;
    size_t i = first;
    for (; i < end; ++i) {
      int fd = -1;
      error = file_ops().open(AT_FDCWD, dirs[i], O_RDONLY | O_DIRECTORY, 0, fd);
      // A folder that can be written but not read cannot be opened to flush
      // it; the files in it are on disk, and the run does not fail for that.
      if (error == EACCES) error = 0;
      if (error) break;
      if (fd < 0) continue;
      fds.push_back(fd);
      opened.push_back(&dirs[i]);
    }
    std::vector<int> errors;
    file_ops().flushAll(fds, errors);
    for (int fd : fds) file_ops().close(fd);
    if (error) return fail(ERROR_CANTWRITE, Operation::kFlush, dirs[i], error);
    for (size_t k = 0; k < errors.size(); ++k)
      if (errors[k]) return fail(ERROR_CANTWRITE, Operation::kFlush, *opened[k], errors[k]);
  }
  return 0;
}

void Installer::closeFiles() {
  for (Work& work : m_group) {
    if (work.fd >= 0) file_ops().close(work.fd);
    if (work.dirFd >= 0) file_ops().close(work.dirFd);
    work.fd = work.dirFd = -1;
  }
}

void Installer::closeGroup() {
  closeFiles();
  m_group.clear();
}

unsigned Installer::cancelRun(unsigned percent) {
  closeGroup();
  unsigned code = m_rollback.rollback(ERROR_CANCELLED);
  m_lock.release();
  m_data->setInstallState(code, RunPhase::kCancelled, std::u16string(), int(percent));
  return code;
}

bool Installer::compareFiles(const std::u16string& path, const _FILETIME& packageTime) {
  // The file itself is never opened, so one that cannot be read keeps its time.
  struct stat64 st;
  return file_ops().stat(AT_FDCWD, narrow_lib(path), st, true) != 0 ||
         replaced_by_package(st, packageTime);
}

unsigned Installer::stopOnError(unsigned code, unsigned percent) {
  if (code == 0) code = ERROR_INVALID_PARAMETER;  // a failure is never reported as success
  if (m_failure.ok()) m_failure = ::failure(code, Operation::kNone);
  m_failure.code = code;
  closeGroup();
  m_data->setInstallState(code, RunPhase::kFailed, std::u16string(), static_cast<int>(percent));
  code = m_rollback.rollback(code);
  if (!m_rollback.keptBackupDir().empty() && m_failure.detail.empty() && m_failure.sysError == 0)
    m_failure.detail = "the backup " + narrow_lib(m_rollback.keptBackupDir()) + " was kept";
  m_lock.release();
  return code;
}
