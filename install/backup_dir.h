// The run's own folders in the temporary directory: the backup directory
// "zqstpN" that holds the old files a run moved aside and its journal, and
// the check that the temporary directory is safe to keep them in.
#pragma once

#include <string>
#include <vector>

#include "compat/status.h"

// The temporary directory ($TMPDIR or /tmp) as bytes, ending in "/".
std::string temp_directory();

// Refuses a temporary directory that other users may write into without
// the sticky bit: there anyone could rename the backup directory while a run
// or a recovery uses it. Ok otherwise (also when it cannot be examined: the
// calls that need it fail then, with their own reason).
Status check_temp_directory();

// Whether `name` is a backup directory's name: "zqstp" and digits.
bool is_backup_name(const std::string& name);

// A new backup directory of this run, open and locked for as long as the
// object lives.
class BackupDir {
 public:
  BackupDir() = default;
  BackupDir(const BackupDir&) = delete;
  BackupDir& operator=(const BackupDir&) = delete;
  ~BackupDir() { close(); }

  // Makes the first "zqstpN" in the temporary directory that does not exist
  // (with mkdir -p), passing over every name that exists already, a link or
  // another user's folder included: those are never entered or removed. The
  // folder made is taken only when it is a directory of this user, not a
  // link, empty, still under its name and locked by nobody else; it is then
  // set to mode 0700. 0 or the code of the failed creation.
  unsigned make();
  // Takes an existing backup directory for recovery: this user's, not a
  // link, locked by no live run. False when it is not to be touched;
  // `held` then tells whether a run (or a command of one) holds its lock.
  bool take(const std::string& path, bool* held = nullptr);

  bool isOpen() const { return m_fd >= 0; }
  int fd() const { return m_fd; }
  // "<temp>/zqstpN/".
  const std::string& path() const { return m_path; }
  unsigned number() const { return m_number; }
  // Whether the name still leads to the directory held open.
  bool stillNamed() const;
  // Whether every file below it is the journal or one of `saved` (paths
  // relative to it); folders are allowed.
  bool holdsOnly(const std::vector<std::string>& saved) const;
  // Removes it with everything in it (rm -rf), when its name still leads to
  // it; then closes it.
  void remove();
  // Marks it as kept: a later start never plays it back.
  void markKept();
  bool isMarkedKept() const;
  void close();

 private:
  int m_fd = -1;
  std::string m_path;
  unsigned m_number = 0;
};
