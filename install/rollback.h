// Recording what an installation run changes, so that it can be undone. The
// run's one record is its journal: every change is preceded by a record that
// lets a later process undo it (written to the journal file in the backup
// directory and put on disk before the change is made), and the same
// records are what a rollback plays back (install/play_back.h). A
// successful run commits the journal and discards the moved-aside files.
// Used by the installation worker alone; no lock.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "install/backup_dir.h"
#include "install/journal.h"

struct RollbackRecord {
  std::u16string targetDir;  // the run's target directory, as given to start
  std::u16string backupDir;  // "<temp>/zqstpN/"; empty when targetDir is empty
};

class Rollback {
 public:
  Rollback() = default;
  Rollback(const Rollback&) = delete;
  Rollback& operator=(const Rollback&) = delete;

  // Begins the record of a run into `targetDir`: makes a fresh backup
  // directory "zqstpN" (backup_dir.h), creates the journal in it and records
  // the target as "mkdir -p" will spell it. Journals no directory. 0, or the
  // code of the failed directory creation (1013 when the journal cannot be
  // written). An empty `targetDir` makes no backup directory and no journal.
  unsigned start(const std::u16string& targetDir);
  // Commits a successful run whose files are on disk: records the commit,
  // then removes the backup directory. 0, or 1013 when the commit could not
  // be recorded (nothing is removed then: the run must be rolled back).
  unsigned stop();
  // The single-step operations below record, put the record on disk and
  // make the change in one call. The copy run does not call them: it uses
  // their two-phase forms further down, so that one flush serves a group.
  //
  // Moves the file at `file` (inside the target directory) aside into the
  // backup directory, so the path is free for the new file. 0 when it was
  // moved, or when the path already holds a file this run wrote; 2 when
  // nothing stands there (no command is run). Anything else fails the run
  // and leaves the file in place: 183 for a directory, 1013 when the file
  // could not be moved aside, 87 for a path outside the target directory.
  unsigned storeRBFile(const std::u16string& file);
  // Journals the file now at `file` as written by this run (rollback deletes
  // it).
  void addRBFile(const std::u16string& file);
  // Journals `dir` as made by this run, as makeDirectoryTree does for each
  // level it makes.
  void addRBCatalog(const std::u16string& dir);
  // Creates `dir` with its missing parents (mkdir -p) and journals each level
  // that did not exist before. A directory that exists, or that this run made
  // or saw already, costs no command. 0, or 3 when it cannot be created.
  unsigned makeDirectoryTree(const std::u16string& dir);
  // The same without journaling (for the backup directory tree).
  unsigned makeBackupDirectoryTree(const std::u16string& dir);
  // Removes `dir` with everything in it (rm -rf). Always 0.
  unsigned removeDirectoryTree(const std::u16string& dir);
  // Undoes the run from its journal and returns `code` unchanged. When an
  // old file cannot be put back, the backup directory is kept and marked, so
  // that nothing is lost and no later start plays it back again;
  // keptBackupDir() names it.
  unsigned rollback(unsigned code);

  // The same steps in two halves, so that the copy run can record the
  // changes of many files, put the records on disk once, and then make them.
  // Records the old file at folded `file` for moving aside: 0 and `move` set
  // when it must be moved (moveAside), 0 when it is this run's own file, or
  // the code storeRBFile gives.
  unsigned prepareStore(const std::string& file, bool& move);
  unsigned moveAside(const std::string& file);
  // Records the levels of `spelledDir` that do not exist (none when it is
  // known already); makeDirectory then runs mkdir -p and records the inodes.
  unsigned prepareDirectory(const std::string& spelledDir);
  unsigned makeDirectory(const std::string& spelledDir);
  // makeDirectory of several folders, their mkdir -p commands running side
  // by side; a folder that an earlier one makes costs no command. The index
  // of the first folder that could not be made, or npos.
  size_t makeDirectories(const std::vector<std::string>& spelledDirs);
  // A name beside folded `file` for its new contents, recorded before the
  // file is created; it carries this run's own mark.
  unsigned prepareTempFile(const std::string& file, std::string& temp);
  // Records the written file `inode` (with its size and modification time)
  // that is about to take the place of folded `file`.
  unsigned recordPlaced(const std::string& file, uint64_t inode, uint64_t size,
                        const struct timespec& modified, bool fresh);
  // Writes the recorded entries to the journal file and puts them on disk.
  // Every change must wait for it. 0 or 1013 (journalError() says why).
  unsigned barrier();

  // The target as the files are placed below it: folded, without a final "/".
  const std::string& target() const { return m_target; }
  // The target as spelled for mkdir -p, ending in "/".
  const std::string& spelledTarget() const { return m_spelling; }
  const RollbackRecord& record() const { return m_record; }
  // The journal of the run, in order: what a rollback plays back.
  const std::vector<JournalEntry>& journal() const { return m_entries; }
  // The backup directory a rollback had to keep; empty when everything went back.
  const std::u16string& keptBackupDir() const { return m_keptBackupDir; }
  // The errno of the last journal write that failed (0 when none did).
  int journalError() const { return m_journalError; }

 private:
  unsigned add(JournalEntry entry);
  // Folded `file` below the target, relative to it (and to the backup).
  std::string relative(const std::string& file) const;
  // Records the times of `dir` before the run first changes its contents,
  // unless the run made it.
  unsigned noteDirectoryChange(const std::string& dir);
  unsigned makeTree(const std::u16string& dir, bool journal);

  RollbackRecord m_record;
  std::string m_target;
  std::string m_spelling;
  std::string m_mark;  // this run's mark in its temporary names
  BackupDir m_backup;
  JournalFile m_file;
  std::vector<JournalEntry> m_entries;
  size_t m_written = 0;  // how many of m_entries are in the file
  // Folded directories known to exist in this run (made or seen), or whose
  // missing levels are recorded already.
  std::unordered_set<std::string> m_knownDirectories;
  std::unordered_set<std::string> m_plannedDirectories;
  std::unordered_set<std::string> m_notedDirectories;
  // Folded paths of the files this run wrote or moved aside.
  std::unordered_set<std::string> m_touchedFiles;
  unsigned m_tempCount = 0;
  int m_journalError = 0;
  std::u16string m_keptBackupDir;
};
