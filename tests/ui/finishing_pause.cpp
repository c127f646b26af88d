// The wizard tests link their own finishing pause: none, so that a run
// returns as soon as its success is published, unless a test holds it.
#include <glib.h>

#include <atomic>

#include "install/installer.h"

namespace uitest {
std::atomic<bool> g_holdFinishingPause{false};
}

void finishing_pause(int) {
  while (uitest::g_holdFinishingPause) g_usleep(1000);
}
