// The state shared by the GUI thread and the installation worker. Every
// operation takes the one lock for its whole body; none holds it across file
// work, and a string copy that throws still releases it.
#pragma once

#include <semaphore.h>

#include <string>

#include "package/package_loader.h"

// Where a run stands. The front ends choose what the user reads for each.
enum class RunPhase : unsigned char {
  kPreparing,  // nothing done yet
  kCopying,    // at the file named by the published path
  kFinished,   // every file in place (percent 100)
  kFailed,     // published before the rollback starts
  kCancelled,  // published once the rollback is over
};

class InstallProcessData {
 public:
  // Empty state (no reader, state 0, preparing, no path, percent 0), lock free.
  InstallProcessData();
  ~InstallProcessData();
  InstallProcessData(const InstallProcessData&) = delete;
  InstallProcessData& operator=(const InstallProcessData&) = delete;

  // Prepares a run: cancel off, state 0, percent 0; `dir` gets a trailing "/"
  // unless empty or already ending in "/" or "\\". Phase and path are kept. The
  // reader is not owned and must outlive the run.
  void init(PackageReader* data, const std::u16string& dir);
  // The reader and the target directory given to init.
  void get(PackageReader*& data, std::u16string& dir);
  // The fields are written and read together: a reader never sees a mix.
  // `path` is the file being installed (kCopying), else empty.
  // setInstallState calls the wakeup hook afterwards, outside the lock.
  void setInstallState(unsigned state, RunPhase phase, const std::u16string& path, int percent);
  void getInstallState(unsigned& state, RunPhase& phase, std::u16string& path, int& percent);
  // The request to abandon the run; the worker looks at it after each file.
  void setCancel(bool cancel);
  bool isCancelled();

  // Called (outside the lock, on the thread that changed the state) after
  // every state change, so a waiting GUI loop wakes up at once. May be null.
  using Wakeup = void (*)(void* context);
  void setWakeup(Wakeup wakeup, void* context);

 private:
  sem_t m_lock;
  PackageReader* m_data = nullptr;
  std::u16string m_templatesDir;
  bool m_cancel = false;
  unsigned m_state = 0;
  RunPhase m_phase = RunPhase::kPreparing;
  std::u16string m_path;
  int m_percent = 0;
  Wakeup m_wakeup = nullptr;
  void* m_wakeupContext = nullptr;
};
