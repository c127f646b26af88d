// The ways out of the wizard: Escape, Cancel, the window's close button and
// the signals that ask the program to end, each asked about, answered or
// put off until a run that cannot be cut short is over.
#include <gdk/gdkkeysyms.h>

#include "texts/resources.h"
#include "ui/installer_dlg.h"
#include "ui/message_box.h"
#include "ui/wizard_events.h"

gboolean CInstallerDlg::gtk_window_key_press_callback(GtkWidget*, GdkEventKey* event,
                                                      void* dialog) {
  return dialog ? static_cast<CInstallerDlg*>(dialog)->processKeyPress(event) : FALSE;
}

bool CInstallerDlg::processKeyPress(GdkEventKey* event) {
  if (event->keyval != GDK_Escape) return false;
  processCancel();
  return true;
}

gboolean CInstallerDlg::gtk_window_delete_callback(GtkWidget*, GdkEvent*, void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  // While files are being installed or put back the window stays: closing
  // it is a cancel request like any other. Elsewhere it closes at once.
  if (self->m_step == kStepProgress)
    self->processCancel();
  else
    self->closeWindow();
  return TRUE;
}

void CInstallerDlg::button_clicked_handler(GtkWidget*, void* dialog) {
  static_cast<CInstallerDlg*>(dialog)->processCancel();
}

void CInstallerDlg::processCancel() {
  if (m_asking) return;
  if (m_step == kStepProgress && (m_runOver || m_session.cancelRequested())) {
    // The run is stopping or being put back and cannot be cut short: the
    // window closes as soon as it is over.
    if (!m_closeRequested) wizard_event("close requested");
    m_closeRequested = true;
    return;
  }
  if (m_confirmCancel) {
    m_asking = true;
    const unsigned answer =
        messageBox(this, LoadResString("IDS_ACCEPT_CANCEL"), kMessageBoxQuestion);
    m_asking = false;
    if (answer != kAnswerYes) return;
  }
  if (m_step == kStepProgress) {
    if (!m_runOver) abortInstall();
    return;
  }
  closeWindow();
}

void CInstallerDlg::abortInstall() {
  wizard_event("cancel requested");
  m_session.cancel();
  // Nothing more to cancel: the run stops after the current file.
  gtk_widget_set_sensitive(m_buttonCancel, FALSE);
}

void CInstallerDlg::closeWindow() {
  if (!m_window) return;
  if (m_session.returned()) {
    gtk_widget_destroy(m_window);
    return;
  }
  // Only the worker's finishing pause after a complete installation is
  // left: the window goes now and is destroyed once the worker has ended.
  gtk_widget_hide(m_window);
  if (gtk_main_level() > 0) gtk_main_quit();
}

void CInstallerDlg::on_signal(void* dialog) {
  // The watcher thread may not touch widgets: the GUI thread answers.
  auto* self = static_cast<CInstallerDlg*>(dialog);
  if (!self->m_signalSource)
    self->m_signalSource = g_idle_add(&CInstallerDlg::on_signal_idle, dialog);
  g_main_context_wakeup(nullptr);
}

gboolean CInstallerDlg::on_signal_idle(void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  self->m_signalSource = 0;
  self->processInterrupt();
  return FALSE;
}

void CInstallerDlg::processInterrupt() {
  m_closeRequested = true;
  if (m_step == kStepProgress) {
    // A running installation is cancelled; the progress page closes the
    // window once the run (and its rollback) is over.
    if (!m_runOver && !m_session.cancelRequested()) abortInstall();
    return;
  }
  closeWindow();
}
