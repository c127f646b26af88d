// One run per target directory. The lock is a file named after the target in
// a folder of this user's in the temporary directory (mode 0700), so only
// this user's runs take part: a lock another user holds anywhere, on the
// target or above it, never blocks or falsifies a run or a recovery. Runs
// into different targets never refuse each other, and a target that does not
// exist yet is locked before it is made. Nothing is added to the target.
#pragma once

#include <string>

class TargetLock {
 public:
  TargetLock() = default;
  TargetLock(const TargetLock&) = delete;
  TargetLock& operator=(const TargetLock&) = delete;
  ~TargetLock() { release(); }

  // Locks the folded target path `target` for this run. 0; kTargetBusy when
  // another run of this user holds it; ERROR_CANTWRITE with `sysError` when
  // the lock cannot be made.
  unsigned acquire(const std::string& target, int& sysError);
  // Drops the lock and removes the lock file (and its folder when empty).
  void release();

 private:
  int m_dirFd = -1;
  int m_fd = -1;
  std::string m_dirPath;
  std::string m_name;
};

// Removes the lock files of this user that no run holds (their run was
// killed), and the lock folder when it is empty then.
void remove_stale_target_locks();

// The code of a target held by another run.
constexpr unsigned kTargetBusy = 32;
