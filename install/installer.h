// One installation run: copies every catalogue file out of the working file
// into the templates directory under the rollback journal, and reports
// progress and outcome through the shared install state.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "compat/file_system.h"
#include "compat/status.h"
#include "install/rollback.h"
#include "install/target_lock.h"
#include "package/package_loader.h"

class InstallProcessData;

// How long the finished state stays up before a successful run returns.
constexpr int kFinishPauseMs = 1000;

// The pause after a complete installation: sleeps `milliseconds`. Kept in a
// file of its own (finishing_pause.cpp) so that a test program can link its
// own version and skip the pause or hold it.
void finishing_pause(int milliseconds);

class Installer {
 public:
  // A fresh installer with an empty journal; use it for one run.
  // `finishPauseMs` is the pause after success (tests shorten it).
  explicit Installer(int finishPauseMs = kFinishPauseMs) : m_finishPauseMs(finishPauseMs) {}
  ~Installer();

  // Runs on the worker thread; `data` (and the reader it holds) must outlive
  // the run. Each file is published as (0, kCopying, its path, percent) as
  // it is reached. 0 after a complete installation, published as (0,
  // kFinished, 100) before the finishing pause. After a failure the error
  // is published as (code, kFailed, percent) and then everything is rolled
  // back; the code is returned. After a cancel everything is rolled back
  // and then (1223, kCancelled, percent) is published; 1223 is returned.
  // The target is locked for the whole run; a target another run holds
  // fails at once (code 32) and nothing is changed. The files are handled in
  // groups: the records of a group's changes go to the journal and to the
  // disk first, then the changes are made; new contents are written under a
  // temporary name beside their place and renamed into it, and reach the
  // disk before the backups are discarded and success is published.
  unsigned run(InstallProcessData* data);
  // Whether the file at `path` must be written: true when missing, not a
  // regular file, or strictly older than `packageTime` (100-ns exact). The
  // time comes from the file's status: a file that cannot be read is kept
  // when it is newer.
  static bool compareFiles(const std::u16string& path, const _FILETIME& packageTime);

  // The journal of the run, for inspection after it.
  const Rollback& rollbackJournal() const { return m_rollback; }
  // What failed: the code published, the operation, the path and the system's
  // reason. ok() after success and after a cancel.
  const Status& failure() const { return m_failure; }
  // The backup directory the rollback had to keep because something could
  // not be put back; empty otherwise.
  const std::u16string& keptBackupDir() const { return m_rollback.keptBackupDir(); }

 private:
  // One catalogue entry of the group under way.
  struct Work {
    size_t index = 0;
    std::string target;      // folded path of the file
    std::string spelledDir;  // its folder as mkdir -p is given it
    bool write = false;      // the package's copy goes in
    bool move = false;       // an old file is moved aside first
    bool fresh = false;      // nothing stood at the path
    std::string temp;        // where the new contents are written
    int fd = -1;             // the written temporary file, until it is on disk
    int dirFd = -1;          // its folder, when the paths are too long to use whole
  };

  unsigned start(const std::u16string& givenDir);
  // Plans the entries from `first` on into m_group, recording the changes
  // they need. Stops before an entry that a change of the group would affect,
  // and before one whose planning fails (unless it is the first: then the
  // failure's code is returned with m_failure set).
  unsigned planGroup(const PackageReader& reader, size_t first);
  unsigned planEntry(const FileEntry& entry, Work& work);
  // Makes the group's changes, publishing each entry's progress; then renames
  // the written files into place and puts them on disk.
  unsigned actGroup(PackageReader& reader, const std::u16string& givenDir, size_t count);
  // Makes the folders of the group's files, their commands side by side.
  // The first entry whose folder could not be made, or null: that entry
  // fails when its turn comes, after the entries before it are written.
  const Work* makeGroupFolders();
  unsigned failFolder(const Work& work);
  unsigned writeContents(PackageReader& reader, const FileEntry& entry, Work& work);
  std::pair<int, std::string> place(Work& work, const std::string& path);
  unsigned placeGroup();
  // Puts the folders holding the placed files on disk.
  unsigned flushFolders();
  void closeFiles();
  void closeGroup();
  unsigned cancelRun(unsigned percent);
  // Publishes (code, error text, percent), then rolls back; returns the code.
  // m_failure says what failed.
  unsigned stopOnError(unsigned code, unsigned percent);
  unsigned fail(unsigned code, Operation operation, const std::string& path, int sysError,
                std::string detail = std::string());

  Rollback m_rollback;
  TargetLock m_lock;
  InstallProcessData* m_data = nullptr;
  int m_finishPauseMs;
  Status m_failure;
  std::vector<Work> m_group;
  std::unordered_set<std::string> m_placedFolders;
  bool m_cancelled = false;
  size_t m_acting = 0;  // the entry whose change is being made
};
