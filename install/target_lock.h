// One run per target directory: an advisory lock on the open directory.
#pragma once

#include <string>

class TargetLock {
 public:
  TargetLock() = default;
  TargetLock(const TargetLock&) = delete;
  TargetLock& operator=(const TargetLock&) = delete;
  ~TargetLock() { release(); }

  // Locks the resolved `targetDir` (ending in "/") for this run: an exclusive
  // flock on the directory itself, or, while it does not exist yet, on its
  // nearest existing ancestor (so two runs into one new directory exclude
  // each other too). Nothing is added to any directory. The lock also fails
  // when an ancestor is held by another run, which may be creating this very
  // directory. 0; 32 when another run holds it (`sysError` EWOULDBLOCK); or
  // 87 with `sysError` set when the directory cannot be opened.
  unsigned acquire(const std::u16string& targetDir, int& sysError);
  void release();
  // The locked directory's descriptor (-1 when not locked).
  int fd() const { return m_fd; }

 private:
  int m_fd = -1;
};

// The code of a target held by another run.
constexpr unsigned kTargetBusy = 32;
