#include "install/rollback.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <random>

#include "compat/file_ops.h"
#include "compat/file_system.h"
#include "compat/shell.h"
#include "compat/text.h"
#include "install/paths.h"
#include "install/play_back.h"

namespace {

int look(const std::string& path, struct stat64& st, bool follow = false) {
  return file_ops().stat(AT_FDCWD, path, st, follow);
}

JournalEntry entry_of(JournalOp op, std::string path) {
  JournalEntry e;
  e.op = op;
  e.path = std::move(path);
  return e;
}

// A mark that no file of the user's carries by accident.
std::string random_mark() {
  std::random_device device;
  char mark[17];
  std::snprintf(mark, sizeof mark, "%08x%08x", device(), device());
  return mark;
}

// The '/' positions that end each level of `dir` (and its end).
std::vector<size_t> level_ends(const std::string& dir) {
  std::vector<size_t> ends;
  for (size_t p = dir.find('/', 1); p != std::string::npos; p = dir.find('/', p + 1))
    ends.push_back(p);
  if (dir.size() > 1 && dir.back() != '/') ends.push_back(dir.size());
  return ends;
}

}  // namespace

unsigned Rollback::start(const std::u16string& targetDir) {
  m_file.close();
  m_backup.close();
  m_record = RollbackRecord();
  m_target.clear();
  m_spelling.clear();
  m_entries.clear();
  m_written = 0;
  m_knownDirectories.clear();
  m_plannedDirectories.clear();
  m_notedDirectories.clear();
  m_touchedFiles.clear();
  m_tempCount = 0;
  m_journalError = 0;
  m_keptBackupDir.clear();
  m_record.targetDir = targetDir;
  if (targetDir.empty()) return 0;

  size_t existing = 0;
  m_spelling = spell_target(narrow_lib(targetDir), existing);
  m_target = fold_path(m_spelling);
  std::u16string tmp;
  if (unsigned code = FileSystem::GetTempPath(tmp)) return code;
  if (unsigned code = makeBackupDirectoryTree(tmp)) return code;
  if (unsigned code = m_backup.make()) return code;
  m_record.backupDir = widen_lib(m_backup.path());
  if (int error = m_file.create(m_backup.fd())) {
    m_journalError = error;
    m_backup.remove();
    m_record.backupDir.clear();
    return ERROR_CANTWRITE;
  }
  m_mark = random_mark();
  JournalEntry target = entry_of(JournalOp::kTarget, m_spelling);
  target.size = existing;
  add(target);
  return barrier();
}

std::string Rollback::relative(const std::string& file) const {
  return file.substr(m_target == "/" ? 1 : m_target.size() + 1);
}

unsigned Rollback::add(JournalEntry entry) {
  m_entries.push_back(std::move(entry));
  return 0;
}

unsigned Rollback::barrier() {
  if (m_written == m_entries.size()) return 0;
  if (m_file.isOpen()) {
    std::vector<JournalEntry> pending(m_entries.begin() + long(m_written), m_entries.end());
    int error = m_file.append(pending);
    if (!error) error = m_file.flush();
    if (error) {
      m_journalError = error;
      return ERROR_CANTWRITE;
    }
  }
  m_written = m_entries.size();
  return 0;
}

unsigned Rollback::noteDirectoryChange(const std::string& dir) {
  if (dir.empty() || m_plannedDirectories.count(dir) || !m_notedDirectories.insert(dir).second)
    return 0;
  // The folder the files go into: through the user's link, if it is one.
  struct stat64 st;
  if (look(dir, st, true) != 0 || !S_ISDIR(st.st_mode)) return 0;
  JournalEntry e = entry_of(JournalOp::kTimes, dir);
  e.inode = st.st_ino;
  e.sec[0] = st.st_atim.tv_sec;
  e.nsec[0] = st.st_atim.tv_nsec;
  e.sec[1] = st.st_mtim.tv_sec;
  e.nsec[1] = st.st_mtim.tv_nsec;
  return add(e);
}

unsigned Rollback::stop() {
  add(entry_of(JournalOp::kCommitted, std::string()));
  // Without its commit on disk the run is not over: a later start would
  // undo it, so the caller undoes it now.
  if (unsigned code = barrier()) {
    m_entries.pop_back();
    return code;
  }
  m_file.close();
  // The backup holds what this run moved aside, and the run is committed.
  m_backup.remove();
  m_knownDirectories.clear();
  return 0;
}

unsigned Rollback::prepareStore(const std::string& file, bool& move) {
  move = false;
  if (!is_below(file, m_target)) return ERROR_INVALID_PARAMETER;
  // A file this run wrote is overwritten in place: the original it replaced
  // (if any) is in the backup already, and must not be replaced there.
  if (m_touchedFiles.count(file)) return 0;
  struct stat64 st;
  if (int error = look(file, st)) {
    // Only a lookup that proves absence says "nothing there".
    if (error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG) return ERROR_FILE_NOT_FOUND;
    return ERROR_CANTWRITE;
  }
  struct stat64 target;
  // Moving a directory aside would take a whole tree with it.
  if (look(file, target, true) == 0 && S_ISDIR(target.st_mode)) return ERROR_ALREADY_EXISTS;
  if (!m_backup.isOpen() || path_exists(m_backup.path() + relative(file)))
    return ERROR_CANTWRITE;  // never overwrite a saved file
  noteDirectoryChange(parent_of(file));
  JournalEntry saved = entry_of(JournalOp::kSavedFile, file);
  saved.inode = st.st_ino;
  saved.sec[0] = st.st_ctim.tv_sec;
  saved.nsec[0] = st.st_ctim.tv_nsec;
  add(saved);
  m_touchedFiles.insert(file);
  move = true;
  return 0;
}

unsigned Rollback::moveAside(const std::string& file) {
  const std::string destination = m_backup.path() + relative(file);
  if (makeBackupDirectoryTree(widen_lib(parent_of(destination))) != 0) return ERROR_CANTWRITE;
  unsigned code = FileSystem::MoveFile(widen_lib(file), widen_lib(destination));
  // mv's exit status does not tell every failure apart: check where the file is.
  if (!path_exists(file) && path_exists(destination)) return 0;
  // A copy across file systems that could not remove the original: the
  // original stays authoritative, the stray copy goes.
  if (path_exists(destination) && path_exists(file))
    file_ops().unlink(AT_FDCWD, destination, false);
  return code == ERROR_INVALID_PARAMETER ? code : ERROR_CANTWRITE;
}

unsigned Rollback::storeRBFile(const std::u16string& file) {
  bool move = false;
  const std::string folded = fold_path(narrow_lib(file));
  unsigned code = prepareStore(folded, move);
  if (code || !move) return code;
  if ((code = barrier())) return code;
  return moveAside(folded);
}

void Rollback::addRBFile(const std::u16string& file) {
  const std::string folded = fold_path(narrow_lib(file));
  struct stat64 st;
  if (look(folded, st) != 0 || !S_ISREG(st.st_mode)) return;
  recordPlaced(folded, st.st_ino, uint64_t(st.st_size), st.st_mtim, true);
}

void Rollback::addRBCatalog(const std::u16string& dir) {
  const std::string folded = fold_path(narrow_lib(dir));
  add(entry_of(JournalOp::kDirectory, folded));
  struct stat64 st;
  if (look(folded, st) == 0 && S_ISDIR(st.st_mode)) {
    JournalEntry made = entry_of(JournalOp::kDirectoryMade, folded);
    made.inode = st.st_ino;
    add(made);
  }
}

unsigned Rollback::prepareDirectory(const std::string& spelledDir) {
  const std::string key = fold_path(spelledDir);
  if (key == "/" || m_knownDirectories.count(key) || m_plannedDirectories.count(key)) return 0;
  for (size_t end : level_ends(spelledDir)) {
    const std::string level = fold_path(spelledDir.substr(0, end));
    if (level == "/" || m_knownDirectories.count(level) || m_plannedDirectories.count(level))
      continue;
    struct stat64 st;
    int error = look(level, st, true);
    if (error == 0 && S_ISDIR(st.st_mode)) {
      m_knownDirectories.insert(level);
      continue;
    }
    // Something in the way, or a level that cannot be looked at: mkdir -p
    // fails there, and makes nothing below it.
    if (error != ENOENT) break;
    // The journal holds every level before mkdir -p may make it.
    noteDirectoryChange(parent_of(level));
    add(entry_of(JournalOp::kDirectory, level));
    m_plannedDirectories.insert(level);
  }
  return 0;
}

unsigned Rollback::makeDirectory(const std::string& spelledDir) {
  return makeDirectories({spelledDir}) == std::string::npos ? 0 : ERROR_PATH_NOT_FOUND;
}

size_t Rollback::makeDirectories(const std::vector<std::string>& spelledDirs) {
  // The commands that one after another would run: mkdir -p makes every
  // level of its folder, so a folder made by an earlier command needs none.
  std::vector<size_t> made;  // indexes into spelledDirs
  std::vector<std::u16string> paths;
  std::unordered_set<std::string> coming;
  for (size_t i = 0; i < spelledDirs.size(); ++i) {
    const std::string key = fold_path(spelledDirs[i]);
    if (key == "/" || m_knownDirectories.count(key) || coming.count(key)) continue;
    for (size_t end : level_ends(spelledDirs[i]))
      coming.insert(fold_path(spelledDirs[i].substr(0, end)));
    made.push_back(i);
    paths.push_back(widen_lib(spelledDirs[i]));
  }
  const std::vector<unsigned> codes = FileSystem::CreateDirectories(paths);
  size_t failed = std::string::npos;
  for (size_t k = 0; k < made.size(); ++k) {
    const std::string& spelledDir = spelledDirs[made[k]];
    // A failing mkdir -p may still have made the outer levels: record them too.
    for (size_t end : level_ends(spelledDir)) {
      const std::string level = fold_path(spelledDir.substr(0, end));
      if (!m_plannedDirectories.count(level) || m_knownDirectories.count(level)) continue;
      struct stat64 st;
      if (look(level, st) != 0 || !S_ISDIR(st.st_mode)) continue;
      JournalEntry entry = entry_of(JournalOp::kDirectoryMade, level);
      entry.inode = st.st_ino;
      add(entry);
      m_knownDirectories.insert(level);
    }
    if (codes[k] == 0)
      m_knownDirectories.insert(fold_path(spelledDir));
    else if (failed == std::string::npos)
      failed = made[k];
  }
  return failed;
}

unsigned Rollback::makeDirectoryTree(const std::u16string& dir) {
  if (isDiskRoot(dir)) return 0;
  if (dir.empty()) return ERROR_PATH_NOT_FOUND;  // mkdir -p "" makes nothing
  const std::string spelled = narrow_lib(dir);
  prepareDirectory(spelled);
  if (unsigned code = barrier()) return code;
  return makeDirectory(spelled);
}

unsigned Rollback::makeBackupDirectoryTree(const std::u16string& dir) {
  if (isDiskRoot(dir)) return 0;
  if (dir.empty()) return ERROR_PATH_NOT_FOUND;
  struct stat64 st;
  if (look(narrow_lib(dir), st, true) == 0 && S_ISDIR(st.st_mode)) return 0;
  return FileSystem::CreateDirectory(dir) == 0 ? 0 : ERROR_PATH_NOT_FOUND;
}

unsigned Rollback::removeDirectoryTree(const std::u16string& dir) {
  if (dir.empty()) return 0;
  return FileSystem::RemoveDirectory(dir);
}

unsigned Rollback::prepareTempFile(const std::string& file, std::string& temp) {
  const std::string dir = parent_of(file);
  temp = (dir == "/" ? std::string() : dir) + "/.zqstp" + std::to_string(m_backup.number()) + "-" +
         m_mark + "-" + std::to_string(++m_tempCount) + ".part";
  noteDirectoryChange(dir);
  return add(entry_of(JournalOp::kTempFile, temp));
}

unsigned Rollback::recordPlaced(const std::string& file, uint64_t inode, uint64_t size,
                                const struct timespec& modified, bool fresh) {
  noteDirectoryChange(parent_of(file));
  JournalEntry placed = entry_of(JournalOp::kPlacedFile, file);
  placed.inode = inode;
  placed.size = size;
  placed.sec[0] = modified.tv_sec;
  placed.nsec[0] = modified.tv_nsec;
  placed.fresh = fresh;
  m_touchedFiles.insert(file);
  return add(placed);
}

unsigned Rollback::rollback(unsigned code) {
  if (m_target.empty()) return code;
  JournalText text;
  text.entries = m_entries;
  const PlayBackResult result = play_back(check_journal(text), m_backup.path());
  m_file.close();
  if (result.complete) {
    m_backup.remove();
  } else if (m_backup.isOpen()) {
    m_backup.markKept();
    m_keptBackupDir = widen_lib(m_backup.path());
  }
  m_backup.close();
  m_knownDirectories.clear();
  return code;
}
