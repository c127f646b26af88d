// Helpers for in-process GTK 2 tests. The test binary needs an X display:
// ctest runs it through tests/with-xvfb.sh. Test code runs with the GDK lock
// held; test timers are added with gdk_threads_add_timeout so they hold it too.
#pragma once

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <string>

namespace gtktest {

// Runs every pending GTK event, idle and redraw, without blocking.
inline void Pump() {
  gdk_flush();
  while (gtk_events_pending()) gtk_main_iteration();
}

// Queues an event for the window (a key press, or the window manager's close
// request); Pump or a wizard loop delivers it.
inline void Post(GtkWidget* window, GdkEventType type, guint keyval = 0) {
  GdkEvent* event = gdk_event_new(type);
  event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window)));
  event->any.send_event = TRUE;
  if (type == GDK_KEY_PRESS) event->key.keyval = keyval;
  gdk_event_put(event);
  gdk_event_free(event);
}

}  // namespace gtktest

// Clicks a button only if a user could (on screen, sensitive): fails the test otherwise.
#define CLICK(w)                                                               \
  do {                                                                         \
    ASSERT_TRUE(gtk_widget_get_mapped(w) && gtk_widget_is_sensitive(w)) << #w; \
    gtk_button_clicked(GTK_BUTTON(w));                                         \
    ::gtktest::Pump();                                                         \
  } while (0)
