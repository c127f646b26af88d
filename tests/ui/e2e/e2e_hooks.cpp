// The end-to-end build of the installer: the program itself, with its two
// observation hooks replaced. Every wizard event is printed as
// "wizard: <what>" on standard output, and E2E_STATE_DELAY_MS makes each
// published state of a run last that long, so a script can act meanwhile.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "install/session.h"
#include "ui/wizard_events.h"

void wizard_event(const std::string& what) {
  std::string line = what;
  for (char& c : line)
    if (c == '\n') c = ' ';
  std::printf("wizard: %s\n", line.c_str());
  std::fflush(stdout);
}

void after_install_state_published() {
  static const unsigned delayMs = [] {
    const char* value = std::getenv("E2E_STATE_DELAY_MS");
    return value ? static_cast<unsigned>(std::strtoul(value, nullptr, 10)) : 0u;
  }();
  if (delayMs) usleep(delayMs * 1000);
}
