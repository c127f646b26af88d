// The installer's entry point.
#include <gtk/gtk.h>

#include "app/installer_app.h"
#include "app/usage.h"
#include "install/interrupts.h"

int main(int argc, char** argv) {
  // Before anything else, so that no signal can end the program halfway
  // through a change: SIGINT, SIGTERM and SIGHUP become requests that each
  // phase answers.
  watch_interrupts();
  // --help and --version (as the first argument) are answered before
  // anything else, display or not.
  const LaunchRequest request = launch_request(argc, argv);
  if (request != LaunchRequest::kRun) return answer_launch_request(request);

  // The installation runs on a worker thread beside the GUI thread.
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  g_thread_init(nullptr);
  G_GNUC_END_IGNORE_DEPRECATIONS
  gdk_threads_init();
  gdk_threads_enter();
  int status;
  {
    CInstallerApp app(argc, argv);
    status = app.InitInstance();
  }
  gdk_threads_leave();
  return status;
}
