#include "install/recovery.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "compat/file_ops.h"
#include "compat/text.h"
#include "install/backup_dir.h"
#include "install/journal.h"
#include "install/target_lock.h"

namespace {

// How long a start waits, once, for folders whose lock is held.
constexpr unsigned kHeldFolderPauseMs = 30;

// The journal's bytes, read through the backup directory without following
// a link; none when there is no journal of this user. False when a read
// failed part-way: what was read is then not the whole journal.
bool read_journal(const BackupDir& backup, std::string& bytes) {
  bytes.clear();
  int fd = -1;
  if (file_ops().open(backup.fd(), kJournalName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, 0, fd))
    return true;
  struct stat64 st;
  bool ours = file_ops().stat(fd, std::string(), st, true) == 0 && S_ISREG(st.st_mode) &&
              st.st_uid == geteuid();
  char buffer[65536];
  size_t n = 0;
  int error = 0;
  while (ours && (error = file_ops().read(fd, buffer, sizeof buffer, n)) == 0 && n > 0)
    bytes.append(buffer, n);
  file_ops().close(fd);
  if (!ours) bytes.clear();
  return error == 0;
}

// The length mark's bytes; none when there is no mark, or it was never written.
std::string read_mark(const BackupDir& backup) {
  std::string mark;
  int fd = -1;
  if (file_ops().open(backup.fd(), kLengthMarkName, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, 0, fd))
    return mark;
  char buffer[64];
  size_t n = 0;
  if (file_ops().read(fd, buffer, sizeof buffer, n) == 0) mark.assign(buffer, n);
  file_ops().close(fd);
  return mark;
}

// One interrupted run whose backup directory is held in `backup`. False
// when it was left for later because a stop was asked for.
bool recover_one(BackupDir& backup, const PlayBackControl& control, RecoveryReport& report) {
  if (backup.isMarkedKept()) return true;
  std::string bytes;
  const bool whole = read_journal(backup, bytes);
  RunJournal journal = check_journal(parse_journal(bytes));
  journal.clean = journal.clean && whole && journal_meets_mark(bytes, read_mark(backup));
  RecoveredRun run;
  run.backupDir = widen_lib(backup.path());
  run.targetDir = widen_lib(journal.target);
  // No journal, or an empty one, and nothing else: its run died before it
  // changed anything. Anything else in such a folder is kept and named.
  if (journal.entries.empty() && journal.clean && backup.holdsOnly({})) {
    backup.remove();
    return true;
  }
  if (!journal.target.empty()) {
    // A run into the same target holds it: its own start played this
    // journal back already, or the next start will.
    TargetLock lock;
    int sysError = 0;
    if (lock.acquire(journal.target, sysError) != 0) return true;
    const PlayBackResult result = play_back(journal, backup.path(), control);
    if (result.stopped) return false;
    if (journal.committed) {
      // The run had succeeded: nothing to undo, and nothing to report.
      if (backup.holdsOnly(result.saved)) backup.remove();
      return true;
    }
    run.complete = result.complete && backup.holdsOnly(result.saved);
  }
  if (run.complete)
    backup.remove();
  else
    backup.markKept();
  report.runs.push_back(run);
  return true;
}

// Recovers the runs of the named backup folders in `base`; the names whose
// lock is held go to `held`. False when a stop was asked for.
bool recover_named(const std::string& base, const std::vector<std::string>& names,
                   const PlayBackControl& control, RecoveryReport& report,
                   std::vector<std::string>* held) {
  for (const std::string& name : names) {
    if (control.stop && control.stop->load()) {
      report.stopped = true;
      return false;
    }
    BackupDir backup;
    bool busy = false;
    // A link, a file, another user's folder or a live run's: never entered.
    if (!backup.take(base + name + "/", &busy)) {
      if (busy && held) held->push_back(name);
      continue;
    }
    if (!recover_one(backup, control, report)) {
      report.stopped = true;
      return false;
    }
  }
  return true;
}

}  // namespace

RecoveryReport recover_interrupted_runs(const PlayBackControl& control) {
  RecoveryReport report;
  const std::string base = temp_directory();
  int dirFd = -1;
  if (file_ops().open(AT_FDCWD, base, O_RDONLY | O_DIRECTORY, 0, dirFd) != 0) return report;
  std::vector<std::string> names;
  file_ops().list(dirFd, names);
  file_ops().close(dirFd);
  names.erase(std::remove_if(names.begin(), names.end(),
                             [](const std::string& n) { return !is_backup_name(n); }),
              names.end());
  std::sort(names.begin(), names.end());

  std::vector<std::string> held;
  if (recover_named(base, names, control, report, &held) && !held.empty()) {
    // A command that outlived its killed run holds the run's lock until it
    // ends: folders found held are looked at once more after a moment.
    usleep(kHeldFolderPauseMs * 1000);
    recover_named(base, held, control, report, nullptr);
  }
  remove_stale_target_locks();
  return report;
}
