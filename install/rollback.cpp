#include "install/rollback.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "compat/file_finder.h"
#include "compat/file_system.h"
#include "compat/shell.h"
#include "compat/text.h"

namespace {

const std::u16string kBackupPrefix = u"zqstp";

// `path` with doubled "/" and "." components dropped and no trailing "/",
// so that two spellings of one place compare equal.
std::u16string normalise(const std::u16string& path) {
  std::u16string out;
  if (!path.empty() && path[0] == u'/') out = u"/";
  size_t pos = 0;
  while (pos <= path.size()) {
    size_t end = path.find(u'/', pos);
    if (end == std::u16string::npos) end = path.size();
    std::u16string part = path.substr(pos, end - pos);
    if (!part.empty() && part != u".") {
      if (!out.empty() && out.back() != u'/') out += u'/';
      out += part;
    }
    pos = end + 1;
  }
  return out;
}

// Whether normalised `path` lies strictly below normalised `dir`.
bool is_below(const std::u16string& path, const std::u16string& dir) {
  if (dir.empty() || path.size() <= dir.size()) return false;
  if (path.compare(0, dir.size(), dir) != 0) return false;
  return dir.back() == u'/' || path[dir.size()] == u'/';
}

bool entry_exists(const std::u16string& path) {
  struct stat64 st;
  return lstat64(narrow_lib(path).c_str(), &st) == 0;
}

// What the run wrote at `file` goes first; then the old file returns. When
// something else still stands there (a folder, which "rm -f" leaves and "mv"
// would move the old file into), the old file stays in the backup.
bool restore_file(const std::u16string& saved, const std::u16string& file) {
  FileSystem::DeleteFile(file);
  if (entry_exists(file)) return false;
  FileSystem::MoveFile(saved, file);
  return !entry_exists(saved) && entry_exists(file);
}

// Whether `path` still names the directory open as `fd`.
bool same_directory(int fd, const std::u16string& path) {
  struct stat64 open, named;
  return fstat64(fd, &open) == 0 && lstat64(narrow_lib(path).c_str(), &named) == 0 &&
         S_ISDIR(named.st_mode) && open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

// Opens the backup directory candidate just made and takes it for this run:
// a directory (not a link) of this user, locked by no one else, still under
// its name, and empty. -1 when it is not this run's to use.
int take_backup_directory(const std::u16string& dir) {
  int fd = open(narrow_lib(dir).c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat64 st;
  bool ours = flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat64(fd, &st) == 0 &&
              S_ISDIR(st.st_mode) && st.st_uid == geteuid() && same_directory(fd, dir) &&
              is_empty_directory(fd) && fchmod(fd, 0700) == 0;
  if (!ours) {
    close(fd);
    return -1;
  }
  return fd;
}

JournalEntry entry_of(JournalOp op, const std::u16string& path) {
  JournalEntry e;
  e.op = op;
  e.path = path;
  return e;
}

}  // namespace

std::u16string parent_of(const std::u16string& path) {
  size_t slash = path.rfind(u'/');
  if (slash == std::u16string::npos) return std::u16string();
  if (slash == 0) return u"/";
  return path.substr(0, slash);
}


bool is_empty_directory(int fd) {
  int copy = dup(fd);
  if (copy < 0) return false;
  DIR* dir = fdopendir(copy);
  if (!dir) {
    close(copy);
    return false;
  }
  bool empty = true;
  while (dirent* e = readdir(dir)) {
    std::string name = e->d_name;
    if (name != "." && name != "..") empty = false;
  }
  closedir(dir);
  return empty;
}


PathKind path_kind(const std::u16string& path) {
  std::string bytes = narrow_lib(path);
  struct stat64 st;
  if (stat64(bytes.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return PathKind::kDirectory;
    if (S_ISREG(st.st_mode)) return PathKind::kFile;
    return PathKind::kOther;
  }
  if (lstat64(bytes.c_str(), &st) == 0) return PathKind::kOther;
  // Only a lookup that proves absence says "missing"; an unreadable place
  // may hold something.
  return errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG ? PathKind::kMissing
                                                                      : PathKind::kOther;
}

Rollback::~Rollback() { closeBackupDirectory(); }

void Rollback::closeBackupDirectory() {
  m_journal.close();
  if (m_backupFd >= 0) close(m_backupFd);  // closing drops the lock
  m_backupFd = -1;
}

RollbackRecord& Rollback::current() {
  if (m_records.empty()) m_records.emplace_back();
  return m_records.back();
}

unsigned Rollback::start(const std::u16string& targetDir) {
  m_records.emplace_back();
  m_knownDirectories.clear();
  m_touchedFiles.clear();
  m_storedFiles.clear();
  m_entries.clear();
  m_notedDirectories.clear();
  m_keptBackupDir.clear();
  m_journalError = 0;
  closeBackupDirectory();
  RollbackRecord& record = m_records.back();
  record.targetDir = targetDir;
  if (targetDir.empty()) return 0;

  std::u16string tmp;
  if (unsigned code = FileSystem::GetTempPath(tmp)) return code;
  if (unsigned code = makeBackupDirectoryTree(tmp)) return code;
  if (unsigned code = makeBackupDirectory(record)) return code;
  if (int error = m_journal.create(m_backupFd)) {
    m_journalError = error;
    FileSystem::RemoveDirectory(record.backupDir);
    closeBackupDirectory();
    record.backupDir.clear();
    return ERROR_CANTWRITE;
  }
  return journal(entry_of(JournalOp::kTarget, targetDir));
}

// The first "zqstpN" that did not exist, made with mkdir -p and taken by
// take_backup_directory. A name that exists, or that another process turns
// out to own, is passed over without being entered or removed.
unsigned Rollback::makeBackupDirectory(RollbackRecord& record) {
  std::u16string base;
  FileSystem::GetTempPath(base);
  if (base.empty() || base.back() != u'/') base += u'/';
  // Names that could not be taken although they looked free; a bound keeps
  // a temporary directory where nothing can be locked from looping forever.
  unsigned lost = 0;
  for (unsigned n = 0; lost < 1000; ++n) {
    std::u16string candidate = base + kBackupPrefix + string_uito(n, 10);
    if (entry_exists(candidate)) continue;
    unsigned code = FileSystem::CreateDirectory(candidate + u'/');
    if (code != 0) {
      if (entry_exists(candidate)) continue;  // made by someone else meanwhile
      return code;
    }
    int fd = take_backup_directory(candidate);
    if (fd < 0) {
      ++lost;
      continue;
    }
    m_backupFd = fd;
    m_backupNumber = n;
    record.backupDir = candidate + u'/';
    return 0;
  }
  return ERROR_CANTWRITE;
}

unsigned Rollback::journal(const JournalEntry& entry) {
  if (m_journal.isOpen()) {
    if (int error = m_journal.append(entry)) {
      m_journalError = error;
      return ERROR_CANTWRITE;
    }
  }
  m_entries.push_back(entry);
  return 0;
}

unsigned Rollback::noteDirectoryChange(const std::u16string& dir) {
  std::u16string key = normalise(dir);
  if (key.empty() || !m_notedDirectories.insert(key).second) return 0;
  struct stat64 st;
  if (lstat64(narrow_lib(key).c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return 0;
  JournalEntry e = entry_of(JournalOp::kTimes, key);
  e.inode = st.st_ino;
  e.sec[0] = st.st_atim.tv_sec;
  e.nsec[0] = st.st_atim.tv_nsec;
  e.sec[1] = st.st_mtim.tv_sec;
  e.nsec[1] = st.st_mtim.tv_nsec;
  return journal(e);
}

unsigned Rollback::stop() {
  RollbackRecord& record = current();
  journal(entry_of(JournalOp::kCommitted, std::u16string()));
  // Only the directory this run made and still holds goes.
  if (m_backupFd >= 0 && same_directory(m_backupFd, record.backupDir))
    removeDirectoryTree(record.backupDir);
  closeBackupDirectory();
  m_knownDirectories.clear();
  return 0;
}

bool Rollback::writtenByThisRun(const std::u16string& file) const {
  return m_touchedFiles.count(normalise(file)) != 0;
}

unsigned Rollback::storeRBFile(const std::u16string& file) {
  RollbackRecord& record = current();
  if (file.size() < record.targetDir.size() ||
      file.compare(0, record.targetDir.size(), record.targetDir) != 0)
    return ERROR_INVALID_PARAMETER;
  // A file this run wrote is overwritten in place: the original it replaced
  // (if any) is in the backup already, and must not be replaced there.
  if (writtenByThisRun(file)) return 0;

  switch (path_kind(file)) {
    case PathKind::kMissing:
      return ERROR_FILE_NOT_FOUND;
    case PathKind::kDirectory:
      // Moving a directory aside would take a whole tree with it.
      return ERROR_ALREADY_EXISTS;
    default:
      break;
  }
  if (record.backupDir.empty()) return ERROR_CANTWRITE;

  std::u16string destination = record.backupDir + file.substr(record.targetDir.size());
  if (entry_exists(destination)) return ERROR_CANTWRITE;  // never overwrite a saved file
  size_t slash = destination.rfind(u'/');
  if (slash != std::u16string::npos && makeBackupDirectoryTree(destination.substr(0, slash)) != 0)
    return ERROR_CANTWRITE;
  struct stat64 st;
  if (lstat64(narrow_lib(file).c_str(), &st) != 0) return ERROR_CANTWRITE;
  if (noteDirectoryChange(parent_of(normalise(file)))) return ERROR_CANTWRITE;
  JournalEntry saved = entry_of(JournalOp::kSavedFile, file);
  saved.inode = st.st_ino;
  saved.sec[0] = st.st_ctim.tv_sec;
  saved.nsec[0] = st.st_ctim.tv_nsec;
  if (journal(saved)) return ERROR_CANTWRITE;
  unsigned code = FileSystem::MoveFile(file, destination);
  // mv's exit status does not tell every failure apart: check where the file is.
  bool moved = !entry_exists(file) && entry_exists(destination);
  if (!moved) {
    if (entry_exists(destination) && entry_exists(file)) {
      // A copy across file systems that could not remove the original: the
      // original stays authoritative, the stray copy goes.
      FileSystem::DeleteFile(destination);
    }
    return code == ERROR_INVALID_PARAMETER ? code : ERROR_CANTWRITE;
  }
  record.storedFileList.push_back(file);
  m_touchedFiles.insert(normalise(file));
  m_storedFiles.insert(normalise(file));
  return 0;
}

void Rollback::addRBFile(const std::u16string& file) { addNewFile(file); }

unsigned Rollback::addNewFile(const std::u16string& file) {
  current().newFileList.push_back(file);
  m_touchedFiles.insert(normalise(file));
  if (noteDirectoryChange(parent_of(normalise(file)))) return ERROR_CANTWRITE;
  return journal(entry_of(JournalOp::kNewFile, file));
}

unsigned Rollback::addTempFile(const std::u16string& file) {
  if (noteDirectoryChange(parent_of(normalise(file)))) return ERROR_CANTWRITE;
  return journal(entry_of(JournalOp::kTempFile, file));
}

void Rollback::addRBCatalog(const std::u16string& dir) {
  current().newDirectoryList.push_back(dir);
}

void Rollback::removeRBFile(const std::u16string& file) {
  RollbackRecord& record = current();
  auto it = std::find(record.newFileList.begin(), record.newFileList.end(), file);
  if (it == record.newFileList.end()) return;
  record.newFileList.erase(it);
  std::u16string key = normalise(file);
  auto same = [&key](const std::u16string& other) { return normalise(other) == key; };
  if (std::none_of(record.newFileList.begin(), record.newFileList.end(), same) &&
      std::none_of(record.storedFileList.begin(), record.storedFileList.end(), same))
    m_touchedFiles.erase(key);
}

unsigned Rollback::makeDirectoryTree(const std::u16string& dir) { return makeTree(dir, true); }

unsigned Rollback::makeBackupDirectoryTree(const std::u16string& dir) {
  return makeTree(dir, false);
}

unsigned Rollback::makeTree(const std::u16string& dir, bool journal) {
  if (isDiskRoot(dir)) return 0;
  if (createDirectory(dir, journal) == 0) return 0;
  // Windows-shaped paths: build the part before the last backslash first.
  if (dir.empty()) return ERROR_PATH_NOT_FOUND;
  size_t slash = dir.rfind(u'\\');
  if (slash == std::u16string::npos) return ERROR_PATH_NOT_FOUND;
  if (slash == 2 && dir[1] == u':') return ERROR_PATH_NOT_FOUND;
  if (unsigned code = makeTree(dir.substr(0, slash), journal)) return code;
  return createDirectory(dir, journal);
}

// mkdir -p of `dir`, run only when the directory is not known to exist. The
// levels that did not exist before (looked up from the outermost missing one
// down) are exactly what mkdir -p creates; they are journaled when asked.
unsigned Rollback::createDirectory(const std::u16string& dir, bool journal) {
  std::u16string key = normalise(dir);
  if (key.empty() || m_knownDirectories.count(key)) return 0;
  if (path_kind(key) == PathKind::kDirectory) {
    m_knownDirectories.insert(key);
    return 0;
  }
  std::vector<std::u16string> missing;  // innermost first
  std::u16string level = key;
  for (; !level.empty() && level != u"/" && !entry_exists(level); level = parent_of(level))
    missing.push_back(level);
  if (journal) {
    // The journal holds every level before mkdir -p may make it.
    if (!missing.empty() && noteDirectoryChange(level)) return ERROR_CANTWRITE;
    for (auto made = missing.rbegin(); made != missing.rend(); ++made) {
      m_notedDirectories.insert(*made);
      if (this->journal(entry_of(JournalOp::kDirectory, *made))) return ERROR_CANTWRITE;
    }
  }

  unsigned code = FileSystem::CreateDirectory(dir);
  // A failing mkdir -p may still have made the outer levels: journal what it made.
  for (auto level = missing.rbegin(); level != missing.rend(); ++level) {
    if (code != 0 && path_kind(*level) != PathKind::kDirectory) break;
    if (journal) addRBCatalog(*level);
    m_knownDirectories.insert(*level);
  }
  if (code != 0) return code;
  m_knownDirectories.insert(key);
  return 0;
}

unsigned Rollback::removeDirectoryTree(const std::u16string& dir) {
  if (dir.empty()) return 0;
  return FileSystem::RemoveDirectory(dir);
}

bool Rollback::rollbackFiles(const std::u16string& target, const std::u16string& backup) {
  FileFinder finder;
  if (!finder.reset(backup + u"*")) return true;
  bool allBack = true;
  do {
    std::u16string name = finder.name();
    if (name == u"." || name == u"..") continue;
    if (finder.attributes() & FILE_ATTRIBUTE_DIRECTORY) {
      allBack =
          rollbackFiles(target + name + kPathSeparator, backup + name + kPathSeparator) && allBack;
      continue;
    }
    // Only what this run moved aside goes back; anything else that turned up
    // in the backup directory is not put into the target.
    if (!m_storedFiles.count(normalise(target + name))) continue;
    if (!restore_file(backup + name, target + name)) allBack = false;
  } while (finder.next());
  return allBack;
}

unsigned Rollback::rollback(unsigned code) {
  RollbackRecord& record = current();
  bool allBack = play_back(record.targetDir, record.backupDir, m_entries);
  // Old files kept by something in the backup that play_back cannot reach
  // (journaling is off without a target) stay with it too.
  if (allBack && !record.backupDir.empty() && m_backupFd >= 0 &&
      same_directory(m_backupFd, record.backupDir))
    removeDirectoryTree(record.backupDir);
  else if (!allBack)
    m_keptBackupDir = record.backupDir;
  closeBackupDirectory();
  m_knownDirectories.clear();
  return code;
}

bool play_back(const std::u16string& targetDir, const std::u16string& backupDir,
               const std::vector<JournalEntry>& entries) {
  std::vector<std::u16string> stored, newFiles, created;
  for (const JournalEntry& e : entries) {
    switch (e.op) {
      case JournalOp::kCommitted:
        return true;
      case JournalOp::kSavedFile:
        stored.push_back(normalise(e.path));
        break;
      case JournalOp::kNewFile:
        newFiles.push_back(e.path);
        break;
      case JournalOp::kDirectory:
        created.push_back(normalise(e.path));
        break;
      case JournalOp::kTempFile: {
        // A temporary file is this run's own: removed by system call.
        struct stat64 st;
        std::string bytes = narrow_lib(e.path);
        if (lstat64(bytes.c_str(), &st) == 0 && S_ISREG(st.st_mode)) unlink(bytes.c_str());
        break;
      }
      default:
        break;
    }
  }

  // Created directories that can go: not one that an old file returns to
  // (old files live in directories that existed before, so this holds unless
  // someone else put a file there during the run), and not one below another
  // directory that goes anyway.
  std::vector<std::u16string> removable;
  for (const std::u16string& key : created) {
    bool holdsOldFile = std::any_of(stored.begin(), stored.end(),
                                    [&key](const std::u16string& f) { return is_below(f, key); });
    if (!holdsOldFile) removable.push_back(key);
  }
  std::vector<std::u16string> outermost;
  for (const std::u16string& dir : removable) {
    bool inner = std::any_of(removable.begin(), removable.end(),
                             [&dir](const std::u16string& d) { return is_below(dir, d); });
    if (!inner && std::find(outermost.begin(), outermost.end(), dir) == outermost.end())
      outermost.push_back(dir);
  }

  // 1. Files created where none existed (those inside a removed directory go with it).
  for (const std::u16string& file : newFiles) {
    std::u16string key = normalise(file);
    bool goesWithDir = std::any_of(outermost.begin(), outermost.end(),
                                   [&key](const std::u16string& d) { return is_below(key, d); });
    if (!goesWithDir && entry_exists(file)) FileSystem::DeleteFile(file);
  }
  // 2. Directories created by the run, last created first.
  for (auto dir = outermost.rbegin(); dir != outermost.rend(); ++dir)
    if (entry_exists(*dir)) FileSystem::RemoveDirectory(*dir);
  // 3. The old files, back where they were. A file whose inode and status
  // time are still those journaled never left (a move across file systems
  // cut short): the copy in the backup goes instead.
  bool allBack = true;
  for (const JournalEntry& e : entries) {
    if (e.op != JournalOp::kSavedFile) continue;
    if (e.path.size() < targetDir.size() || e.path.compare(0, targetDir.size(), targetDir) != 0) {
      allBack = false;
      continue;
    }
    std::u16string saved = backupDir + e.path.substr(targetDir.size());
    if (backupDir.empty() || !entry_exists(saved)) continue;
    struct stat64 st;
    if (lstat64(narrow_lib(e.path).c_str(), &st) == 0 && st.st_ino == e.inode &&
        st.st_ctim.tv_sec == e.sec[0] && st.st_ctim.tv_nsec == e.nsec[0]) {
      FileSystem::DeleteFile(saved);
      continue;
    }
    if (!restore_file(saved, e.path)) allBack = false;
  }
  // 4. The times of the directories that existed before, last of all: every
  // change inside them is undone by now.
  for (const JournalEntry& e : entries) {
    if (e.op != JournalOp::kTimes) continue;
    // Only to the directory itself, not to whatever took its place.
    struct stat64 st;
    if (lstat64(narrow_lib(e.path).c_str(), &st) != 0 || !S_ISDIR(st.st_mode) ||
        st.st_ino != e.inode)
      continue;
    struct timespec times[2] = {{time_t(e.sec[0]), e.nsec[0]}, {time_t(e.sec[1]), e.nsec[1]}};
    utimensat(AT_FDCWD, narrow_lib(e.path).c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
  return allBack;
}
