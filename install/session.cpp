#include "install/session.h"

#include "install/installer.h"

OutcomeKind classify_run(unsigned state, int percent) {
  if (state == 0 && percent >= 100) return OutcomeKind::kInstalled;
  if (state == ERROR_CANCELLED) return OutcomeKind::kCancelled;
  return OutcomeKind::kFailed;
}

InstallSession::InstallSession(PackageReader& package, StarterState& starter)
    : m_package(package), m_starter(starter) {}

InstallSession::~InstallSession() { m_thread.join(); }

void InstallSession::setWakeup(InstallProcessData::Wakeup wakeup, void* context) {
  m_wakeup = wakeup;
  m_wakeupContext = context;
}

bool InstallSession::start(const std::u16string& target) {
  m_target = target;
  // Never install relative to the working directory.
  if (target.empty()) {
    m_outcome.status =
        failure(ERROR_PATH_NOT_FOUND, Operation::kNone, std::u16string(), 0, "no target folder");
    m_finished = true;
    return false;
  }
  m_data.setWakeup(&InstallSession::onStateChange, this);
  m_data.init(&m_package, target);
  m_returned = false;
  if (int error = m_thread.start(&InstallSession::runInstallation, this)) {
    m_returned = true;
    m_outcome.status = failure(ERROR_INVALID_PARAMETER, Operation::kStartWorker, target, error);
    m_finished = true;
    return false;
  }
  return true;
}

bool InstallSession::runInstallation(void* self) {
  auto* me = static_cast<InstallSession*>(self);
  {
    Installer installer;
    installer.run(&me->m_data);
    me->m_runFailure = installer.failure();
    me->m_keptBackupDir = installer.keptBackupDir();
  }
  me->m_returned = true;
  me->changed();
  return false;  // one run
}

void InstallSession::onStateChange(void* self) {
  static_cast<InstallSession*>(self)->changed();
  after_install_state_published();
}

void InstallSession::changed() {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_changes;
  }
  m_changed.notify_all();
  if (m_wakeup) m_wakeup(m_wakeupContext);
}

RunProgress InstallSession::progress() {
  RunProgress p;
  p.returned = m_returned;  // first: a run that had returned has published its last state
  m_data.getInstallState(p.state, p.phase, p.path, p.percent);
  return p;
}

unsigned long InstallSession::waitForChange(unsigned long seen) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_changed.wait(lock, [&] { return m_changes != seen || m_returned; });
  return m_changes;
}

void InstallSession::waitSettled() {
  unsigned long seen = changeCount();
  while (!settled()) seen = waitForChange(seen);
}

void InstallSession::waitReturned() {
  unsigned long seen = changeCount();
  while (!m_returned) seen = waitForChange(seen);
}

unsigned long InstallSession::changeCount() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_changes;
}

void InstallSession::cancel() { m_data.setCancel(true); }

bool InstallSession::cancelRequested() { return m_data.isCancelled(); }

const InstallOutcome& InstallSession::finish() {
  if (m_finished) return m_outcome;
  // A complete installation is final once published: only the worker's
  // finishing pause is left, which nothing below depends on.
  RunProgress p = progress();
  if (classify_run(p.state, p.percent) != OutcomeKind::kInstalled) {
    m_thread.join();
    p = progress();
  }
  m_finished = true;
  m_outcome.kind = classify_run(p.state, p.percent);
  switch (m_outcome.kind) {
    case OutcomeKind::kInstalled:
      m_outcome.status = record_template_dir(m_starter, m_target);
      if (!m_outcome.status.ok()) m_outcome.kind = OutcomeKind::kStarterNotWritten;
      break;
    case OutcomeKind::kCancelled:
      break;
    case OutcomeKind::kFailed:
    case OutcomeKind::kStarterNotWritten:
      m_outcome.status = m_runFailure.ok() ? failure(p.state, Operation::kNone) : m_runFailure;
      m_outcome.keptBackupDir = m_keptBackupDir;
      break;
  }
  return m_outcome;
}
