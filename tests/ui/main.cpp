// main of the in-process GTK tests: the program's own start-up under a private HOME.
#include <cstdio>

#include "wizard_fixture.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // The file chooser writes below HOME from a timer: a private, existing one.
  testsupport::TempDir home;
  testsupport::ScopedEnv homeEnv("HOME", home.path());
  g_mkdir_with_parents((home / ".local/share").c_str(), 0700);
  for (const char* v : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"}) g_unsetenv(v);
  g_get_user_data_dir();  // GLib keeps this first answer, whatever HOME a test sets later
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  g_thread_init(nullptr);
  G_GNUC_END_IGNORE_DEPRECATIONS
  gdk_threads_init();
  if (!gtk_init_check(&argc, &argv)) {
    std::fprintf(stderr, "no X display: run through tests/with-xvfb.sh\n");
    return 2;
  }
  // The common desktop's 96 dots per inch (Xvfb reports about 100), at
  // which the default font gives the wizard its 500 by 360 layout.
  g_object_set(gtk_settings_get_default(), "gtk-xft-dpi", 96 * 1024, nullptr);
  // GTK and GLib warnings and criticals fail the test that caused them.
  for (const char* d : {"Gtk", "Gdk", "GLib", "GLib-GObject", "GLib-GIO", "Pango", "GdkPixbuf"})
    g_log_set_handler(
        d, GLogLevelFlags(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL),
        [](const gchar* domain, GLogLevelFlags, const gchar* msg, gpointer) {
          ADD_FAILURE() << domain << ": " << msg;
        },
        nullptr);
  gdk_threads_enter();
  const int rc = RUN_ALL_TESTS();
  gdk_threads_leave();
  return rc;
}
