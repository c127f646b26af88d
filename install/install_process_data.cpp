#include "install/install_process_data.h"

#include <errno.h>

#include <utility>

#include "compat/text.h"

namespace {

// Holds the semaphore for one scope, also when the scope is left by an exception.
class SemaphoreLock {
 public:
  explicit SemaphoreLock(sem_t& sem) : m_sem(sem) {
    while (sem_wait(&m_sem) != 0 && errno == EINTR) {
    }
  }
  ~SemaphoreLock() { sem_post(&m_sem); }
  SemaphoreLock(const SemaphoreLock&) = delete;
  SemaphoreLock& operator=(const SemaphoreLock&) = delete;

 private:
  sem_t& m_sem;
};

}  // namespace

InstallProcessData::InstallProcessData() { sem_init(&m_lock, 0, 1); }

InstallProcessData::~InstallProcessData() { sem_destroy(&m_lock); }

void InstallProcessData::init(PackageReader* data, const std::u16string& dir) {
  std::u16string templatesDir = dir;
  if (!templatesDir.empty() && templatesDir.back() != u'\\' && templatesDir.back() != u'/')
    templatesDir += kPathSeparator;
  SemaphoreLock lock(m_lock);
  m_cancel = false;
  m_state = 0;
  m_percent = 0;
  m_data = data;
  m_templatesDir.swap(templatesDir);
}

void InstallProcessData::get(PackageReader*& data, std::u16string& dir) {
  SemaphoreLock lock(m_lock);
  dir = m_templatesDir;
  data = m_data;
}

void InstallProcessData::setInstallState(unsigned state, RunPhase phase, const std::u16string& path,
                                         int percent) {
  // The copy is made before the lock: under it only a swap, which cannot throw.
  std::u16string copy = path;
  Wakeup wakeup = nullptr;
  void* context = nullptr;
  {
    SemaphoreLock lock(m_lock);
    m_state = state;
    m_phase = phase;
    m_path.swap(copy);
    m_percent = percent;
    wakeup = m_wakeup;
    context = m_wakeupContext;
  }
  if (wakeup) wakeup(context);
}

void InstallProcessData::getInstallState(unsigned& state, RunPhase& phase, std::u16string& path,
                                         int& percent) {
  SemaphoreLock lock(m_lock);
  path = m_path;  // first: if the copy throws, nothing was handed out
  state = m_state;
  phase = m_phase;
  percent = m_percent;
}

void InstallProcessData::setCancel(bool cancel) {
  SemaphoreLock lock(m_lock);
  m_cancel = cancel;
}

bool InstallProcessData::isCancelled() {
  SemaphoreLock lock(m_lock);
  return m_cancel;
}

void InstallProcessData::setWakeup(Wakeup wakeup, void* context) {
  SemaphoreLock lock(m_lock);
  m_wakeup = wakeup;
  m_wakeupContext = context;
}
