#include "gtk_test_support.h"

#include <cstdio>
#include <cstdlib>

namespace gtktest {

// gtk_main_iteration releases the GDK lock while it waits and takes it again
// afterwards, so it must be called with the lock held: from test bodies and
// from gdk_threads_add_timeout callbacks, never from plain g_timeout_add ones.
void Pump() {
  gdk_flush();
  while (gtk_events_pending()) gtk_main_iteration();
}

::testing::AssertionResult Clickable(GtkWidget* w) {
  if (!w) return ::testing::AssertionFailure() << "null widget";
  if (!gtk_widget_get_realized(w)) return ::testing::AssertionFailure() << "not realized";
  if (!gtk_widget_get_mapped(w)) return ::testing::AssertionFailure() << "not mapped (hidden)";
  if (!gtk_widget_is_sensitive(w)) return ::testing::AssertionFailure() << "insensitive";
  return ::testing::AssertionSuccess();
}

void SendKey(GtkWidget* window, guint keyval) {
  // Aimed at a child: on the toplevel itself GTK 2 logs a critical.
  GtkWidget* target = gtk_window_get_focus(GTK_WINDOW(window));
  if (!target) target = gtk_bin_get_child(GTK_BIN(window));
  ASSERT_TRUE(gtk_test_widget_send_key(target, keyval, GdkModifierType(0))) << "key " << keyval;
  Pump();
}

void PostKey(GtkWidget* window, guint keyval) {
  GdkEvent* event = gdk_event_new(GDK_KEY_PRESS);
  event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window)));
  event->key.send_event = TRUE;
  event->key.time = GDK_CURRENT_TIME;
  event->key.keyval = keyval;
  gdk_event_put(event);
  gdk_event_free(event);
}

void SendDelete(GtkWidget* window) {
  GdkEvent* event = gdk_event_new(GDK_DELETE);
  event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window)));
  event->any.send_event = TRUE;
  gtk_main_do_event(event);
  gdk_event_free(event);
}

DialogResponder::DialogResponder(std::function<int(GtkDialog*)> on_dialog)
    : on_dialog_(std::move(on_dialog)) {
  source_ = gdk_threads_add_timeout(20, &DialogResponder::Tick, this);
}

DialogResponder::~DialogResponder() {
  if (source_) g_source_remove(source_);
}

gboolean DialogResponder::Tick(gpointer p) {
  auto* self = static_cast<DialogResponder*>(p);
  GList* tops = gtk_window_list_toplevels();
  for (GList* l = tops; l; l = l->next) {
    GtkWidget* w = GTK_WIDGET(l->data);
    if (!GTK_IS_DIALOG(w) || !gtk_widget_get_mapped(w)) continue;
    if (g_object_get_data(G_OBJECT(w), "gtktest-answered")) continue;
    int response = self->on_dialog_(GTK_DIALOG(w));
    if (response == DialogResponder::kAskAgain) break;
    g_object_set_data(G_OBJECT(w), "gtktest-answered", GINT_TO_POINTER(1));
    ++self->answered_;
    gtk_dialog_response(GTK_DIALOG(w), response);
    break;
  }
  g_list_free(tops);
  return TRUE;
}

bool SaveScreenshot(GtkWidget* window, const std::string& png_path) {
  Pump();
  gdk_window_process_all_updates();
  gdk_flush();
  GdkWindow* gw = gtk_widget_get_window(window);
  int w = 0, h = 0;
  gdk_drawable_get_size(gw, &w, &h);
  GdkPixbuf* pb = gdk_pixbuf_get_from_drawable(nullptr, gw, nullptr, 0, 0, 0, 0, w, h);
  if (!pb) return false;
  gboolean ok = gdk_pixbuf_save(pb, png_path.c_str(), "png", nullptr, nullptr);
  g_object_unref(pb);
  return ok;
}

std::string MessageText(GtkDialog* d) {
  gchar* text = nullptr;
  g_object_get(d, "text", &text, nullptr);
  std::string s = text ? text : "";
  g_free(text);
  return s;
}

std::string LabelText(GtkWidget* label) { return gtk_label_get_text(GTK_LABEL(label)); }

}  // namespace gtktest

namespace {
// GTK and GLib warnings and criticals fail the test that caused them.
void LogToFailure(const gchar* domain, GLogLevelFlags level, const gchar* msg, gpointer) {
  ADD_FAILURE() << (domain ? domain : "")
                << ((level & G_LOG_LEVEL_CRITICAL) ? "-CRITICAL: " : "-WARNING: ") << msg;
}
}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // A private, existing HOME: the file chooser's recent-files manager writes
  // below it from a timer.
  gchar* home = g_dir_make_tmp("gtktest-home-XXXXXX", nullptr);
  g_setenv("HOME", home, TRUE);
  gchar* share = g_build_filename(home, ".local", "share", nullptr);
  g_mkdir_with_parents(share, 0700);
  g_free(share);
  for (const char* v : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"}) g_unsetenv(v);
  // The program's own start-up.
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  g_thread_init(nullptr);
  G_GNUC_END_IGNORE_DEPRECATIONS
  gdk_threads_init();
  if (!gtk_init_check(&argc, &argv)) {
    std::fprintf(stderr, "cannot open X display '%s': run through tests/with-xvfb.sh\n",
                 g_getenv("DISPLAY") ? g_getenv("DISPLAY") : "");
    return 2;
  }
  const auto levels = GLogLevelFlags(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL);
  for (const char* d : {"Gtk", "Gdk", "GLib", "GLib-GObject", "GLib-GIO", "Pango", "GdkPixbuf"})
    g_log_set_handler(d, levels, LogToFailure, nullptr);
  gdk_threads_enter();
  int rc = RUN_ALL_TESTS();
  gdk_threads_leave();
  gchar* rm = g_strdup_printf("rm -rf '%s'", home);
  if (std::system(rm) != 0) std::fprintf(stderr, "could not remove %s\n", home);
  g_free(rm);
  g_free(home);
  return rc;
}
