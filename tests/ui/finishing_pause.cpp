#include "finishing_pause.h"

#include <condition_variable>
#include <mutex>

#include "install/installer.h"

namespace {
std::mutex g_mutex;
std::condition_variable g_released;
bool g_held = false;
}  // namespace

namespace uitest {

HeldFinishingPause::HeldFinishingPause() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_held = true;
}

HeldFinishingPause::~HeldFinishingPause() {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_held = false;
  }
  g_released.notify_all();
}

}  // namespace uitest

// Replaces the program's one-second pause in the wizard tests.
void finishing_pause(int) {
  std::unique_lock<std::mutex> lock(g_mutex);
  g_released.wait(lock, [] { return !g_held; });
}
