// The wizard's construction, its start-up and the flow of its pages, from
// the welcome page to Finish. The window and its buttons are in
// wizard_window.cpp, cancelling and closing in wizard_cancel.cpp, the run
// behind the progress page in wizard_run.cpp.
#include "ui/installer_dlg.h"

#include "compat/file_finder.h"
#include "compat/shell.h"
#include "compat/text.h"
#include "install/interrupts.h"
#include "install/startup.h"
#include "package/package_location.h"
#include "texts/resources.h"
#include "ui/failure_text.h"
#include "ui/message_box.h"
#include "ui/wizard_events.h"
#include "ui/wizard_pages.h"

CInstallerDlg::CInstallerDlg(int argc, char** argv, bool silent, const std::string& title,
                             const std::u16string& languageCode, bool useCwd)
    : m_silent(silent),
      m_languageCode(languageCode),
      m_useCwd(useCwd),
      m_argc(argc),
      m_argv(argv),
      m_title(title),
      m_session(m_package, m_starter) {
  gtk_init(&m_argc, &m_argv);
  m_starter.writeOrdinary = false;
  m_starter.writeBase = false;
  m_session.setWakeup(&CInstallerDlg::wake_gui, this);
  on_interrupt(&CInstallerDlg::on_signal, this);
}

CInstallerDlg::~CInstallerDlg() {
  on_interrupt(nullptr, nullptr);
  if (m_signalSource) g_source_remove(m_signalSource);
  // The worker only touches the package reader and the session's state:
  // let it finish before anything goes away.
  m_session.waitReturned();
  if (m_window) gtk_widget_destroy(m_window);
  if (m_sideImage) g_object_unref(m_sideImage);
  if (m_icon) g_object_unref(m_icon);
}

std::u16string CInstallerDlg::getTitle() const { return widen_lib(m_title); }

// ---------------------------------------------------------------- start-up

std::u16string CInstallerDlg::getTpkFullPath() const { return tpk_full_path(m_useCwd); }

bool CInstallerDlg::OnInitDialog() {
  m_packagePath = getTpkFullPath();
  const StartupReport report =
      prepare_installation(m_packagePath, m_package, m_starter, &interrupt_flag());
  // An interrupt during the load ends the program without a word.
  if (report.status.code == ERROR_CANCELLED || interrupted()) return false;
  if (!report.status.ok()) {
    messageBox(this, with_cause(LoadResString(start_failure_key(report.status)), report.status),
               kMessageBoxError);
    return false;
  }
  m_targetDir = m_starter.proposal;
  return true;
}

void CInstallerDlg::DoModal() {
  if (!OnInitDialog()) return;
  m_welcomePage.reset();
  showMainWindow();
  showWelcomePage();
  if (m_silent) {
    showProgressPage();
  } else if (!m_closeRequested) {
    gtk_main();
  }
  // After a complete installation the worker may still be in its finishing
  // pause: the window (if it is still there) keeps answering until it ends.
  while (!m_session.returned()) gtk_main_iteration();
}

void CInstallerDlg::titles(std::u16string& product, std::u16string& vendor) const {
  for (const LanguageEntry& entry : m_package.languages) {
    if (compare_nocase(entry.language, m_languageCode) == 0) {
      product = entry.title1;
      vendor = entry.title2;
      return;
    }
  }
  product.clear();
  vendor.clear();
}

// ---------------------------------------------------------------- pages and flow

void CInstallerDlg::showWelcomePage() {
  std::u16string product, vendor;
  titles(product, vendor);
  if (product.empty()) product = LoadResString("IDS_DEFPRODUCT");
  if (vendor.empty()) vendor = LoadResString("IDS_DEFPROVIDER");
  if (!m_welcomePage) {
    const std::u16string text =
        LoadResString("IDS_WELCOME_TITLE") + u" " + product + u" (" + vendor + u").";
    m_welcomePage = std::make_unique<MessagePage>(m_fixed, m_sideImage, text);
  }
  if (m_silent) {
    gtk_widget_hide(m_buttonBack);
    gtk_widget_hide(m_buttonNext);
  } else {
    gtk_widget_set_sensitive(m_buttonBack, FALSE);
  }
  m_step = kStepWelcome;
  setCurPage(m_welcomePage.get());
  focusPage(m_silent ? m_buttonCancel : m_buttonNext, m_welcomePage->label());
  wizard_event("page=welcome");
}

void CInstallerDlg::showSelectPathPage() {
  m_step = kStepDirectory;
  if (!m_dirPage) m_dirPage = std::make_unique<DirSelectPage>(m_fixed, m_sideImage);
  m_dirPage->setPath(m_targetDir);
  gtk_widget_set_sensitive(m_buttonBack, TRUE);
  gtk_widget_set_sensitive(m_buttonNext, TRUE);
  setCurPage(m_dirPage.get());
  focusPage(m_dirPage->entry(), m_dirPage->prompt());
  wizard_event("page=directory");
}

void CInstallerDlg::on_buttonNext_clicked(GtkWidget*, void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  switch (self->m_step) {
    case kStepWelcome:
      self->showSelectPathPage();
      break;
    case kStepDirectory: {
      // An empty or relative path is refused: nothing is installed relative
      // to wherever the program was started.
      const std::u16string path = typed_target(self->m_dirPage->getPath());
      if (path.empty()) {
        messageBox(self, LoadResString("IDS_SETUP_EMPTYTARGET"), kMessageBoxPlain);
        break;
      }
      self->m_targetDir = path;
      self->showProgressPage();
      break;
    }
    case kStepSuccess:
    case kStepError:
      self->finalize();
      break;
    default:
      break;
  }
}

void CInstallerDlg::on_buttonPrev_clicked(GtkWidget*, void* dialog) {
  auto* self = static_cast<CInstallerDlg*>(dialog);
  if (self->m_step == kStepDirectory) self->showWelcomePage();
}

void CInstallerDlg::showSuccessFinalPage() {
  m_step = kStepSuccess;
  if (!m_successPage) {
    // The page's text, and below it where the templates went.
    m_successPage = std::make_unique<SuccessFinalPage>(
        m_fixed, m_sideImage, LoadResString("IDS_SUCCESS_FINISH") + u"\n\n" + m_targetDir);
  }
  setFinishButtons();
  setCurPage(m_successPage.get());
  focusPage(m_buttonNext, m_successPage->label());
  wizard_event("page=success");
}

void CInstallerDlg::showFinalPage(std::unique_ptr<MessagePage>& page, const char* key,
                                  unsigned step, const char* name) {
  if (!page) page = std::make_unique<MessagePage>(m_fixed, m_sideImage, LoadResString(key));
  m_step = step;
  setFinishButtons();
  setCurPage(page.get());
  focusPage(m_buttonNext, page->label());
  wizard_event(name);
}

void CInstallerDlg::showErrorFinalPage() {
  showFinalPage(m_errorPage, "IDS_ERROR_FINISH", kStepError, "page=error");
}

void CInstallerDlg::showCancelFinalPage() {
  showFinalPage(m_cancelPage, "IDS_CANCEL_FINISH", kStepError, "page=cancelled");
}

MessagePage* CInstallerDlg::finalMessagePage() const {
  if (m_curPage == m_errorPage.get()) return m_errorPage.get();
  if (m_curPage == m_cancelPage.get()) return m_cancelPage.get();
  return nullptr;
}

std::u16string CInstallerDlg::documentPath() const {
  // The record of the interface language names the document; failing that
  // (no record, or an empty name), the English record does.
  std::u16string name;
  bool found = false;
  for (const LanguageEntry& entry : m_package.languages) {
    if (compare_nocase(entry.language, m_languageCode) == 0) {
      if (!entry.descriptionRef.empty()) {
        name = entry.descriptionRef;
        found = true;
      }
      break;
    }
  }
  if (!found) {
    for (const LanguageEntry& entry : m_package.languages) {
      if (compare_nocase(entry.language, u"en") == 0) {
        name = entry.descriptionRef;
        break;
      }
    }
  }
  std::u16string path = m_targetDir + name;
  replace_all(path, kBadPathSeparator, kPathSeparator);
  return path;
}

std::string CInstallerDlg::descriptionCommand() const {
  return "xdg-open \"" + shell_escape(narrow_lib(documentPath())) + "\" 2>/dev/null";
}

void CInstallerDlg::finalize() {
  if (m_step != kStepSuccess && m_step != kStepError) return;
  // Only the success page has the check box; nothing is opened after an error.
  if (m_curPage == m_successPage.get() && m_successPage->isShowReadmeChecked()) {
    FileFinder finder;
    if (finder.reset(documentPath())) {
      finder.close();
      const std::string command = descriptionCommand();
      wizard_event("open " + command);
      run_linux_command(command.c_str());
    }
  }
  closeWindow();
}
