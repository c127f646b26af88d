// The run behind the progress page: the session started on the worker, the
// GUI pumped until its outcome is known, and that outcome shown.
#include "texts/resources.h"
#include "ui/failure_text.h"
#include "ui/installer_dlg.h"
#include "ui/message_box.h"
#include "ui/wizard_events.h"
#include "ui/wizard_pages.h"

void CInstallerDlg::wake_gui(void*) { g_main_context_wakeup(nullptr); }

const InstallOutcome& CInstallerDlg::waitForWorker() {
  // The worker wakes the loop when its run returns, so this never waits
  // for an unrelated event.
  while (!m_session.returned()) gtk_main_iteration();
  return m_session.finish();
}

void CInstallerDlg::showProgressPage() {
  if (!m_progressPage) m_progressPage = std::make_unique<ProgressPage>(m_fixed, m_width - 20);
  gtk_widget_set_sensitive(m_buttonBack, FALSE);
  gtk_widget_set_sensitive(m_buttonNext, FALSE);
  m_runOver = false;
  if (!m_targetDir.empty()) {
    setCurPage(m_progressPage.get());
    focusPage(m_buttonCancel, m_progressPage->statusLabel());
    m_step = kStepProgress;
    wizard_event("page=progress");
  }
  if (!m_session.start(m_targetDir)) {
    // An empty target or no worker thread: nothing was touched.
    m_runOver = true;
    const InstallOutcome& outcome = m_session.outcome();
    messageBox(this, with_cause(LoadResString(refused_run_key(outcome.status)), outcome.status),
               kMessageBoxError);
    showErrorFinalPage();
    return;
  }

  // Each turn blocks until an event or the worker's wake-up. The page is
  // touched only when the percentage moved: redrawing it unchanged would
  // queue new events and keep the loop spinning.
  RunProgress progress;
  int shown = -1;
  for (;;) {
    progress = m_session.progress();
    if (progress.percent != shown) {
      m_progressPage->setProgress(progress.percent);
      shown = progress.percent;
    }
    if (progress.settled()) break;
    gtk_main_iteration();
  }
  m_runOver = true;
  gtk_widget_set_sensitive(m_buttonCancel, FALSE);

  if (classify_run(progress.state, progress.percent) == OutcomeKind::kInstalled) {
    // Shown at once; the worker's finishing pause goes on meanwhile.
    showSuccessFinalPage();
    reportStarterNotWritten(m_session.finish());
  } else {
    // A failure is told once the run has put everything back, with the
    // path and the reason.
    const InstallOutcome& outcome = waitForWorker();
    if (outcome.kind == OutcomeKind::kFailed)
      messageBox(this, with_cause(run_state_text(progress.phase, progress.path), outcome.status),
                 kMessageBoxError);
    if (outcome.kind == OutcomeKind::kCancelled)
      showCancelFinalPage();
    else
      showErrorFinalPage();
  }
  if (m_closeRequested) closeWindow();
}

void CInstallerDlg::reportStarterNotWritten(const InstallOutcome& outcome) {
  // The templates are in place; only the starter's list could not be
  // updated. The box names the file that kept its old contents, and why.
  if (outcome.kind != OutcomeKind::kStarterNotWritten) return;
  messageBox(this, with_cause(LoadResString("IDS_INSTALL_ERROR"), outcome.status),
             kMessageBoxError);
}
