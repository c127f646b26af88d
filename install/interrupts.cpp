#include "install/interrupts.h"

#include <pthread.h>
#include <signal.h>

#include <mutex>

namespace {

std::atomic<bool> g_interrupted{false};
std::mutex g_mutex;  // guards the handler and serialises its calls
InterruptHandler g_handler = nullptr;
void* g_context = nullptr;
sigset_t g_signals;

void notify() {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_handler) g_handler(g_context);
}

void* watch(void*) {
  for (;;) {
    int signal = 0;
    if (sigwait(&g_signals, &signal) != 0) continue;
    g_interrupted = true;
    notify();
  }
  return nullptr;
}

}  // namespace

void watch_interrupts() {
  static std::once_flag once;
  std::call_once(once, [] {
    sigemptyset(&g_signals);
    for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&g_signals, s);
    pthread_sigmask(SIG_BLOCK, &g_signals, nullptr);
    pthread_t thread;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_create(&thread, &attributes, &watch, nullptr);
    pthread_attr_destroy(&attributes);
  });
}

const std::atomic<bool>& interrupt_flag() { return g_interrupted; }

void on_interrupt(InterruptHandler handler, void* context) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_handler = handler;
  g_context = context;
  if (handler && g_interrupted) handler(context);
}
