// One installation run: copies every catalogue file out of the working file
// into the templates directory under the rollback journal, and reports
// progress and outcome through the shared install state.
#pragma once

#include <string>
#include <vector>

#include "compat/file_system.h"
#include "compat/status.h"
#include "install/rollback.h"
#include "install/target_lock.h"
#include "package/package_loader.h"

class InstallProcessData;

// How long the finished state stays up before a successful run returns.
constexpr int kFinishPauseMs = 1000;

class Installer {
 public:
  // A fresh installer with an empty journal; use it for one run.
  // `finishPauseMs` is the pause after success (tests shorten it).
  explicit Installer(int finishPauseMs = kFinishPauseMs) : m_finishPauseMs(finishPauseMs) {}

  // Runs on the worker thread; `data` (and the reader it holds) must outlive
  // the run. 0 after a complete installation, published as (0, finish text,
  // 100). After a failure the error is published as (code, error text,
  // percent) and then everything is rolled back; the code is returned.
  // After a cancel everything is rolled back and then (1223, cancel text,
  // percent) is published; 1223 is returned.
  // The target is resolved first (resolve_target) and locked for the whole
  // run; a target another run holds fails at once (code 32) and nothing is
  // changed. New contents are written under a temporary name beside their
  // place and renamed into it; the installed files are flushed to disk before
  // the backups are discarded and success is published.
  unsigned run(InstallProcessData* data);
  // Whether the file at `path` must be written: true when missing, not a
  // regular file, or strictly older than `packageTime` (100-ns exact). The
  // time comes from the file's status: a file that cannot be read is kept
  // when it is newer.
  static bool compareFiles(const std::u16string& path, const _FILETIME& packageTime);

  // The journal of the run, for inspection after it.
  const Rollback& rollbackJournal() const { return m_rollback; }
  // What failed: the code published, the step, the path and the system's
  // reason. ok() after success and after a cancel.
  const Status& failure() const { return m_failure; }
  // The backup directory the rollback had to keep because something could
  // not be put back; empty otherwise.
  const std::u16string& keptBackupDir() const { return m_rollback.keptBackupDir(); }

 private:
  // Publishes (code, error text, percent), then rolls back; returns the code.
  // m_failure says what failed.
  unsigned stopOnError(unsigned code, unsigned percent);
  // Checks the target before anything is changed: its paths fit PATH_MAX and
  // no other run holds it. 0 or the code, with m_failure set.
  unsigned prepareTarget(const PackageReader& reader, const std::u16string& targetDir);
  // Saves what stands at `target`, makes its directory and writes the entry
  // there with the package time. 0 or the code of the failed step, with
  // m_failure set.
  unsigned installEntry(PackageReader& reader, const FileEntry& entry,
                        const std::u16string& target);
  // Writes the entry's contents under a temporary name beside `target` and
  // renames it into place.
  unsigned placeContents(PackageReader& reader, const FileEntry& entry,
                         const std::u16string& target);
  // Puts every file placed in this run on disk, with the folders holding them.
  unsigned flushPlaced();
  unsigned fail(unsigned code, Step step, const std::u16string& path, int sysError,
                std::string detail = std::string());

  Rollback m_rollback;
  TargetLock m_lock;
  InstallProcessData* m_data = nullptr;
  int m_finishPauseMs;
  Status m_failure;
  unsigned m_tempCount = 0;
  std::vector<std::u16string> m_placed;  // files renamed into place, in order
};
