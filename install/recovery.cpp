#include "install/recovery.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "compat/file_system.h"
#include "compat/text.h"
#include "install/journal.h"
#include "install/rollback.h"
#include "install/target_lock.h"

namespace {

bool is_backup_name(const std::string& name) {
  const std::string prefix = "zqstp";
  if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) return false;
  for (size_t i = prefix.size(); i < name.size(); ++i)
    if (name[i] < '0' || name[i] > '9') return false;
  return true;
}

// The journal text, read through `dirFd` without following a link; false
// when there is no journal of this user.
bool read_journal(int dirFd, std::string& text) {
  int fd = openat(dirFd, kJournalName, O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat st;
  bool ours = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid();
  text.clear();
  char buffer[65536];
  ssize_t n;
  while (ours && (n = read(fd, buffer, sizeof buffer)) > 0) text.append(buffer, size_t(n));
  close(fd);
  return ours;
}

// Whether every path the journal names lies below its target: anything else
// is not played back.
bool paths_inside(const std::u16string& target, const std::vector<JournalEntry>& entries) {
  if (target.size() < 2 || target[0] != u'/' || target.back() != u'/') return false;
  if (target.find(u"/../") != std::u16string::npos) return false;
  for (const JournalEntry& e : entries) {
    if (e.op == JournalOp::kTarget || e.op == JournalOp::kCommitted) continue;
    if (e.path.find(u"/../") != std::u16string::npos) return false;
    // A directory's times are journaled for its parent too, which may be the
    // target's own parent levels.
    if (e.op == JournalOp::kTimes) continue;
    if (e.path.size() <= target.size() || e.path.compare(0, target.size(), target) != 0)
      return false;
  }
  return true;
}

// One interrupted run. The directory is open and locked as `dirFd`.
bool recover_one(int dirFd, const std::u16string& backupDir, std::vector<RecoveredRun>& out) {
  std::string text;
  if (!read_journal(dirFd, text)) {
    // Its run died before the journal existed: nothing was changed.
    if (is_empty_directory(dirFd)) rmdir(narrow_lib(backupDir).c_str());
    return false;
  }
  const std::vector<JournalEntry> entries = parse_journal(text);
  RecoveredRun run;
  run.backupDir = backupDir;
  if (!entries.empty() && entries[0].op == JournalOp::kTarget) run.targetDir = entries[0].path;
  bool committed = false;
  for (const JournalEntry& e : entries) committed = committed || e.op == JournalOp::kCommitted;

  if (committed) {
    // The run had succeeded: nothing to undo, and nothing to report.
    FileSystem::RemoveDirectory(backupDir);
    return true;
  }
  if (!run.targetDir.empty() && paths_inside(run.targetDir, entries)) {
    // A new run into the same target may hold it; its own start played
    // this journal back already, or will next time.
    TargetLock lock;
    int sysError = 0;
    if (lock.acquire(run.targetDir, sysError) != 0) return false;
    run.complete = play_back(run.targetDir, backupDir, entries);
  }
  if (run.complete) FileSystem::RemoveDirectory(backupDir);
  out.push_back(run);
  return true;
}

}  // namespace

std::vector<RecoveredRun> recover_interrupted_runs() {
  std::vector<RecoveredRun> out;
  std::u16string tmp;
  FileSystem::GetTempPath(tmp);
  const std::string base = narrow_lib(tmp);
  DIR* dir = opendir(base.c_str());
  if (!dir) return out;
  std::vector<std::string> names;
  while (dirent* e = readdir(dir))
    if (is_backup_name(e->d_name)) names.push_back(e->d_name);
  closedir(dir);

  for (const std::string& name : names) {
    const std::string path = base + name;
    struct stat named;
    if (lstat(path.c_str(), &named) != 0 || !S_ISDIR(named.st_mode) || named.st_uid != geteuid())
      continue;  // a link, a file, or another user's: never entered
    int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) continue;
    struct stat opened;
    // A live run holds its backup directory locked.
    if (fstat(fd, &opened) == 0 && opened.st_dev == named.st_dev &&
        opened.st_ino == named.st_ino && flock(fd, LOCK_EX | LOCK_NB) == 0)
      recover_one(fd, widen_lib(path + "/"), out);
    close(fd);
  }
  return out;
}
