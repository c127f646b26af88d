#include "support/slow_run.h"

#include <unistd.h>

#include <atomic>

#include "install/session.h"

namespace {
std::atomic<unsigned> g_delayMs{0};
}

namespace testsupport {
SlowRun::SlowRun(unsigned milliseconds) { g_delayMs = milliseconds; }
SlowRun::~SlowRun() { g_delayMs = 0; }
}  // namespace testsupport

// Replaces the program's empty hook in the test programs that link this file.
void after_install_state_published() {
  if (unsigned ms = g_delayMs) usleep(ms * 1000);
}
