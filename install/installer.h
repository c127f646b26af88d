// One installation run: copies every catalogue file out of the working file
// into the templates directory under the rollback journal, and reports
// progress and outcome through the shared install state.
#pragma once

#include <string>

#include "compat/file_system.h"
#include "compat/status.h"
#include "install/rollback.h"
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
  unsigned run(InstallProcessData* data);
  // Whether the file at `path` must be written: true when missing, not a
  // regular file, or strictly older than `packageTime` (100-ns exact).
  static bool compareFiles(const std::u16string& path, const _FILETIME& packageTime);

  // The journal of the run, for inspection after it.
  const Rollback& rollbackJournal() const { return m_rollback; }
  // After a failed run: the code, step and path of what failed.
  const Status& failure() const { return m_failure; }
  // After a rollback that could not put everything back: the backup folder
  // that still holds the old files; empty otherwise.
  const std::u16string& keptBackupDir() const { return m_keptBackupDir; }

 private:
  // Publishes (code, error text, percent), then rolls back; returns the code.
  unsigned stopOnError(unsigned code, unsigned percent);
  // Saves what stands at `target`, makes its directory and writes the entry
  // there with the package time. 0 or the code of the failed step.
  unsigned installEntry(PackageReader& reader, const FileEntry& entry,
                        const std::u16string& target);
  Rollback m_rollback;
  Status m_failure;
  std::u16string m_keptBackupDir;
  InstallProcessData* m_data = nullptr;
  int m_finishPauseMs;
};
