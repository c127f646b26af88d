// The rollback journal of an installation run: which directories and files
// the run created, and the old files it moved aside before overwriting them.
// A failed or cancelled run plays the journal back, so the target directory
// ends exactly as it was; a successful run discards the moved-aside copies.
// Every record is also written to a journal file in the backup directory
// before the change it describes, so that a run that dies part-way can be
// undone by a later process (install/recovery.h).
// Used by the installation worker alone; no lock.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "install/journal.h"

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
  Rollback() = default;
  Rollback(const Rollback&) = delete;
  Rollback& operator=(const Rollback&) = delete;
  ~Rollback();

  // Begins a new record for `targetDir` and creates a fresh backup directory
  // "zqstpN" in the temporary directory: a name that exists already (a link
  // included) is passed over untouched; the directory made is checked to be
  // this user's, not a link, empty, and is locked for the run, then holds the
  // journal file. Journals no directory. 0, or the code of the failed
  // directory creation (1013 when the journal cannot be created). An empty
  // `targetDir` makes no backup directory and no journal file.
  unsigned start(const std::u16string& targetDir);
  // Commits a successful run whose files are on disk: marks the journal
  // committed, then removes the backup directory. Always 0.
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
  // The same, telling whether the record reached the journal file: 0 or 1013.
  unsigned addNewFile(const std::u16string& file);
  // Journals a temporary file about to be created (rollback deletes it): 0 or 1013.
  unsigned addTempFile(const std::u16string& file);
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
  // gives the directories that existed before their times back, and removes
  // the backup directory. If an old file cannot be put back, the backup
  // directory (with its journal) is kept so that nothing is lost, and
  // keptBackupDir() names it.
  unsigned rollback(unsigned code);
  // Moves every file below `backup` that this run moved aside back to the
  // same place below `target` (both end in "/"), replacing what the run wrote
  // there. False when some file could not be put back.
  bool rollbackFiles(const std::u16string& target, const std::u16string& backup);

  // The journal; the last record is the current one.
  const std::vector<RollbackRecord>& records() const { return m_records; }
  // The backup directory a rollback had to keep; empty when everything went back.
  const std::u16string& keptBackupDir() const { return m_keptBackupDir; }
  // The errno of the last journal write that failed (0 when none did).
  int journalError() const { return m_journalError; }
  // The number N of the current backup directory "zqstpN".
  unsigned backupNumber() const { return m_backupNumber; }

 private:
  RollbackRecord& current();
  unsigned makeTree(const std::u16string& dir, bool journal);
  unsigned createDirectory(const std::u16string& dir, bool journal);
  bool writtenByThisRun(const std::u16string& file) const;
  unsigned makeBackupDirectory(RollbackRecord& record);
  void closeBackupDirectory();
  // Writes `entry` to the journal file (when there is one) and keeps it.
  unsigned journal(const JournalEntry& entry);
  // Journals the times of `dir` before the run first changes its contents,
  // unless the run created it.
  unsigned noteDirectoryChange(const std::u16string& dir);

  std::vector<RollbackRecord> m_records;
  // Directories known to exist in this run (made or seen), normalised.
  std::unordered_set<std::u16string> m_knownDirectories;
  // Normalised paths of the files this run wrote or moved aside.
  std::unordered_set<std::u16string> m_touchedFiles;
  // Normalised paths of the old files moved aside in this run.
  std::unordered_set<std::u16string> m_storedFiles;
  // The records of the current run, as written to the journal file.
  std::vector<JournalEntry> m_entries;
  // Normalised directories whose times are journaled, or that the run made.
  std::unordered_set<std::u16string> m_notedDirectories;
  JournalFile m_journal;
  int m_backupFd = -1;  // the backup directory, locked while the run lasts
  unsigned m_backupNumber = 0;
  int m_journalError = 0;
  std::u16string m_keptBackupDir;
};

// The text before the last "/" of a normalised path; empty when there is
// none ("/" for a path directly below the root).
std::u16string parent_of(const std::u16string& path);

// Whether the directory open as `fd` has no entries (false when it cannot
// be read).
bool is_empty_directory(int fd);

// Undoes what `entries` (a journal, in order) record for the run into
// `targetDir` whose old files were moved into `backupDir` (both ending in
// "/"): temporary and new files deleted, created directories removed, old
// files moved back, earlier directory times restored. Doing it again after
// it was done, or after it was cut short, changes nothing more. A journal
// holding kCommitted undoes nothing. False when some old file could not be
// put back (it stays in the backup).
bool play_back(const std::u16string& targetDir, const std::u16string& backupDir,
               const std::vector<JournalEntry>& entries);
