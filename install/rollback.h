// The rollback journal of an installation run: which directories and files
// the run created, and the old files it moved aside before overwriting them.
// A failed or cancelled run plays the journal back, so the target directory
// ends exactly as it was; a successful run discards the moved-aside copies.
// Used by the installation worker alone; no lock.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

// What stands at a path. Symbolic links are followed for `kDirectory` and
// `kFile`; a link whose target is missing counts as `kOther`.
enum class PathKind { kMissing, kFile, kDirectory, kOther };
// Looks `path` up with stat/lstat. Missing only when the lookup proves it
// (no such entry, a parent that is not a directory, a name too long to exist).
PathKind path_kind(const std::u16string& path);

// The journal of one run (one call of Rollback::start).
struct RollbackRecord {
  std::u16string targetDir;                      // the run's target directory, as given to start
  std::u16string backupDir;                      // "<temp>/zqstpN/"; empty when targetDir is empty
  std::vector<std::u16string> newDirectoryList;  // directories the run created, in order
  std::vector<std::u16string> newFileList;       // files the run created where none existed
  std::vector<std::u16string> storedFileList;    // old files moved aside into backupDir
};

class Rollback {
 public:
  // Begins a new record for `targetDir` and creates a fresh backup directory
  // "zqstpN" (the first free N) in the temporary directory. Journals nothing.
  // 0, or the code of the failed directory creation. An empty `targetDir`
  // makes no backup directory.
  unsigned start(const std::u16string& targetDir);
  // Commits a successful run: removes the backup directory. Always 0.
  unsigned stop();
  // Moves the file at `file` (inside the target directory) aside into the
  // backup directory, so the path is free for the new file.
  // 0 when it was moved, or when the path already holds a file this run wrote
  // (its original, if any, is safe already); 2 when nothing stands there (no
  // command is run). Anything else fails the run and leaves the file in place:
  // 183 when a directory stands there, 1013 when the file could not be moved
  // aside, 87 for a path outside the target directory.
  unsigned storeRBFile(const std::u16string& file);
  // Journals `file` as created by this run (rollback deletes it).
  void addRBFile(const std::u16string& file);
  // Journals `dir` as created by this run (rollback removes it with its contents).
  void addRBCatalog(const std::u16string& dir);
  // Forgets the first journaled file equal to `file`.
  void removeRBFile(const std::u16string& file);
  // Creates `dir` with its missing parents (mkdir -p) and journals each level
  // that did not exist before. A directory that exists, or that this run made
  // or saw already, costs no command. 0, or 3 when it cannot be created.
  unsigned makeDirectoryTree(const std::u16string& dir);
  // The same without journaling (for the backup directory tree).
  unsigned makeBackupDirectoryTree(const std::u16string& dir);
  // Removes `dir` with everything in it (rm -rf). Always 0.
  unsigned removeDirectoryTree(const std::u16string& dir);
  // Undoes the current record and returns `code` unchanged: deletes the files
  // the run created, removes the directories it created (never one that an
  // old file returns to), moves every old file back with its bytes and times,
  // and removes the backup directory. If an old file cannot be put back, the
  // backup directory is kept so that nothing is lost.
  unsigned rollback(unsigned code);
  // Moves every file below `backup` that this run moved aside back to the
  // same place below `target` (both end in "/"), replacing what the run wrote
  // there. False when some file could not be put back.
  bool rollbackFiles(const std::u16string& target, const std::u16string& backup);

  // The journal; the last record is the current one.
  const std::vector<RollbackRecord>& records() const { return m_records; }

 private:
  RollbackRecord& current();
  unsigned makeTree(const std::u16string& dir, bool journal);
  unsigned createDirectory(const std::u16string& dir, bool journal);
  bool writtenByThisRun(const std::u16string& file) const;
  bool restoreFile(const std::u16string& saved, const std::u16string& file);

  std::vector<RollbackRecord> m_records;
  // Directories known to exist in this run (made or seen), normalised.
  std::unordered_set<std::u16string> m_knownDirectories;
  // Normalised paths of the files this run wrote or moved aside.
  std::unordered_set<std::u16string> m_touchedFiles;
  // Normalised paths of the old files moved aside in this run.
  std::unordered_set<std::u16string> m_storedFiles;
};
