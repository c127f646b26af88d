// Helpers for in-process GTK 2 tests. The test binary needs an X display:
// ctest runs it through tests/with-xvfb.sh.
#pragma once

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <functional>
#include <string>

namespace gtktest {

// Test code runs with the GDK lock held, like GTK's own callbacks; timers of
// tests are added with gdk_threads_add_timeout so that they hold it too.

// Runs every pending GTK event, idle and redraw, without blocking.
void Pump();
// A button a user could press: realized, on screen and sensitive.
::testing::AssertionResult Clickable(GtkWidget* w);
// Presses a key on the window's focus widget through the X server.
void SendKey(GtkWidget* window, guint keyval);
// Queues a key press for the window; the main loop delivers it.
void PostKey(GtkWidget* window, guint keyval);
// Delivers a close request from the window manager (delete-event).
void SendDelete(GtkWidget* window);

// Answers real modal dialogs (gtk_dialog_run) from a timer inside their
// nested loop: on_dialog(dialog) returns the response, or kAskAgain.
class DialogResponder {
 public:
  static constexpr int kAskAgain = 1000;
  explicit DialogResponder(std::function<int(GtkDialog*)> on_dialog);
  ~DialogResponder();
  int answered() const { return answered_; }

 private:
  static gboolean Tick(gpointer self);
  std::function<int(GtkDialog*)> on_dialog_;
  guint source_ = 0;
  int answered_ = 0;
};

// Saves what the window shows as PNG. False on error.
bool SaveScreenshot(GtkWidget* window, const std::string& png_path);
// Text of a GtkMessageDialog.
std::string MessageText(GtkDialog* d);
// Text of a label.
std::string LabelText(GtkWidget* label);

}  // namespace gtktest

// Clicks a button only if a user could: fails the test otherwise.
#define CLICK(w)                                \
  do {                                          \
    ASSERT_TRUE(::gtktest::Clickable(w)) << #w; \
    gtk_button_clicked(GTK_BUTTON(w));          \
    ::gtktest::Pump();                          \
  } while (0)
