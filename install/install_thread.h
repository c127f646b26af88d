// The installation worker thread. Owned and driven by the GUI thread.
#pragma once

#include <pthread.h>

#include <atomic>

class InstallThread {
 public:
  // One unit of work; the thread repeats it while it returns true and no stop
  // was requested. Runs on the worker thread.
  using Job = bool (*)(void* owner);

  InstallThread() = default;
  ~InstallThread();  // waits for a running worker
  InstallThread(const InstallThread&) = delete;
  InstallThread& operator=(const InstallThread&) = delete;

  // Starts the worker on `job(owner)`; `owner` must outlive the worker.
  // 0, the error of thread creation, or EBUSY while a worker still runs.
  // A worker that has finished is joined first.
  int start(Job job, void* owner);
  // Asks the worker not to begin the job again; a job under way runs on.
  void stop();
  // True from a successful start until the worker has returned.
  bool isRunning() const;
  // Waits for the worker to return (no-op when none was started).
  void join();

 private:
  static void* thread_func(void* self);
  Job m_job = nullptr;
  void* m_owner = nullptr;
  std::atomic<bool> m_stop{false};
  std::atomic<bool> m_running{false};
  pthread_t m_thread{};
  int m_createResult = -1;
  bool m_joinable = false;  // a started thread not yet joined (GUI thread only)
};
