#include "install/install_thread.h"

#include <errno.h>

InstallThread::~InstallThread() { join(); }

int InstallThread::start(Job job, void* owner) {
  if (m_running) return EBUSY;
  join();
  m_stop = false;
  m_job = job;
  m_owner = owner;
  m_createResult = -1;
  pthread_attr_t attributes;
  if (int result = pthread_attr_init(&attributes)) return result;
  m_running = true;
  m_createResult = pthread_create(&m_thread, &attributes, &InstallThread::thread_func, this);
  pthread_attr_destroy(&attributes);
  if (m_createResult != 0) {
    m_running = false;
    return m_createResult;
  }
  m_joinable = true;
  return 0;
}

void InstallThread::stop() { m_stop = true; }

bool InstallThread::isRunning() const { return m_running; }

void InstallThread::join() {
  if (!m_joinable) return;
  pthread_join(m_thread, nullptr);
  m_joinable = false;
}

void* InstallThread::thread_func(void* self) {
  auto* thread = static_cast<InstallThread*>(self);
  while (!thread->m_stop && thread->m_job(thread->m_owner)) {
  }
  thread->m_running = false;
  return nullptr;
}
