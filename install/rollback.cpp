#include "install/rollback.h"

#include <errno.h>
#include <sys/stat.h>

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

// The text before the last "/" of a normalised path; empty when there is none
// ("/" for a path directly below the root).
std::u16string parent_of(const std::u16string& path) {
  size_t slash = path.rfind(u'/');
  if (slash == std::u16string::npos) return std::u16string();
  if (slash == 0) return u"/";
  return path.substr(0, slash);
}

bool entry_exists(const std::u16string& path) {
  struct stat64 st;
  return lstat64(narrow_lib(path).c_str(), &st) == 0;
}

}  // namespace

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

RollbackRecord& Rollback::current() {
  if (m_records.empty()) m_records.emplace_back();
  return m_records.back();
}

unsigned Rollback::start(const std::u16string& targetDir) {
  m_records.emplace_back();
  m_knownDirectories.clear();
  m_touchedFiles.clear();
  m_storedFiles.clear();
  RollbackRecord& record = m_records.back();
  record.targetDir = targetDir;
  if (targetDir.empty()) return 0;

  std::u16string tmp;
  if (unsigned code = FileSystem::GetTempPath(tmp)) return code;
  if (unsigned code = makeBackupDirectoryTree(tmp)) return code;
  std::u16string base = tmp;
  if (base.empty() || base.back() != u'/') base += u'/';
  for (unsigned n = 0;; ++n) {
    record.backupDir = base + kBackupPrefix + string_uito(n, 10);
    if (!entry_exists(record.backupDir)) break;
  }
  record.backupDir += u'/';
  return makeBackupDirectoryTree(record.backupDir);
}

unsigned Rollback::stop() {
  unsigned code = removeDirectoryTree(current().backupDir);
  m_knownDirectories.clear();
  return code;
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

void Rollback::addRBFile(const std::u16string& file) {
  current().newFileList.push_back(file);
  m_touchedFiles.insert(normalise(file));
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
  for (std::u16string level = key; !level.empty() && level != u"/" && !entry_exists(level);
       level = parent_of(level))
    missing.push_back(level);

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
    if (!restoreFile(backup + name, target + name)) allBack = false;
  } while (finder.next());
  return allBack;
}

bool Rollback::restoreFile(const std::u16string& saved, const std::u16string& file) {
  // What the run wrote at this path goes first; then the old file returns.
  FileSystem::DeleteFile(file);
  FileSystem::MoveFile(saved, file);
  return !entry_exists(saved) && entry_exists(file);
}

unsigned Rollback::rollback(unsigned code) {
  RollbackRecord& record = current();

  std::vector<std::u16string> stored;
  for (const std::u16string& file : record.storedFileList) stored.push_back(normalise(file));

  // Created directories that can go: not one that an old file returns to
  // (old files live in directories that existed before, so this holds unless
  // someone else put a file there during the run), and not one below another
  // directory that goes anyway.
  std::vector<std::u16string> removable;
  for (const std::u16string& dir : record.newDirectoryList) {
    std::u16string key = normalise(dir);
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
  for (const std::u16string& file : record.newFileList) {
    std::u16string key = normalise(file);
    bool goesWithDir = std::any_of(outermost.begin(), outermost.end(),
                                   [&key](const std::u16string& d) { return is_below(key, d); });
    if (!goesWithDir) FileSystem::DeleteFile(file);
  }
  // 2. Directories created by the run, last created first.
  for (auto dir = outermost.rbegin(); dir != outermost.rend(); ++dir) removeDirectoryTree(*dir);
  // 3. The old files, back where they were: the backup is walked, then any
  // file the walk could not reach (a directory that could not be listed) is
  // put back by name.
  bool allBack = true;
  if (!record.targetDir.empty() && !record.backupDir.empty()) {
    rollbackFiles(record.targetDir, record.backupDir);
    for (const std::u16string& file : record.storedFileList) {
      std::u16string saved = record.backupDir + file.substr(record.targetDir.size());
      if (entry_exists(saved) && !restoreFile(saved, file)) allBack = false;
    }
  }
  // 4. The backup, unless it still holds an old file that could not go back.
  if (allBack) removeDirectoryTree(record.backupDir);

  m_knownDirectories.clear();
  return code;
}
