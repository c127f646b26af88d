// The wizard: the installer's one main window, its pages and the flow from
// welcome to finish. Everything here runs on the GUI thread; the
// installation itself runs on the session's worker.
#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <string>

#include "install/session.h"
#include "package/package_loader.h"
#include "starter/starter_state.h"
#include "ui/wnd.h"

class WizardDialogPage;
class MessagePage;
class SuccessFinalPage;
class DirSelectPage;
class ProgressPage;

class CInstallerDlg : public CWnd {
 public:
  // Page numbers (the current step).
  enum Step : unsigned {
    kStepNone = 0,
    kStepWelcome = 1,
    kStepDirectory = 2,
    kStepProgress = 3,
    kStepSuccess = 4,
    kStepError = 5,
  };

  // Keeps copies of argc/argv for gtk_init (which may remove the toolkit's
  // own options from them). `title` is UTF-8.
  CInstallerDlg(int argc, char** argv, bool silent, const std::string& title,
                const std::u16string& languageCode, bool useCwd);
  ~CInstallerDlg() override;
  CInstallerDlg(const CInstallerDlg&) = delete;
  CInstallerDlg& operator=(const CInstallerDlg&) = delete;

  std::u16string getTitle() const override;

  // Runs the wizard to its end: package check, window, pages, main loop (or,
  // silent, the installation at once). Returns when the window is gone and
  // no worker runs any more.
  void DoModal();
  // Undoes interrupted runs, finds and loads the package and settles the
  // proposed directory. False after a message box has told the user what
  // went wrong, or after an interrupt during the load.
  bool OnInitDialog();
  // The package path: "plom8.tpk" in the working directory (useCwd) or
  // beside the executable; empty when that directory is unknown.
  std::u16string getTpkFullPath() const;

  // Creates and shows the main window: title, separator, Back, Next (the
  // default button) and Cancel, and the side image the pages use.
  void showMainWindow();
  // Window properties: centred, fixed 500 by 360 (larger in proportion to
  // a larger desktop font), modal, a dialog to the window manager, icon,
  // page area, and the destroy, key and close signals.
  void initMainWindow();
  // New pixbufs of the compiled-in artwork; the caller owns them.
  GdkPixbuf* createIcon() const;
  GdkPixbuf* createBackImage() const;
  // Hides the current page's widgets, shows `page`'s (null: hide only).
  void setCurPage(WizardDialogPage* page);
  // Buttons of a final page: Finish (default), Cancel insensitive, no Back.
  void setFinishButtons();
  // Gives a page's control the keyboard focus; a screen reader reads the
  // page's text (the label `text`) as the control's description.
  void focusPage(GtkWidget* control, GtkWidget* text);
  // Product and vendor texts of the package for the interface language;
  // both empty when the package has none for it.
  void titles(std::u16string& product, std::u16string& vendor) const;

  // Step 1: the welcome text with the package's product and vendor (or the
  // stand-ins); in a silent run without Back and Next.
  void showWelcomePage();
  // Step 2: the directory page, its entry set to the target directory.
  void showSelectPathPage();
  // Runs the installation on the worker and pumps the GUI until its outcome
  // is known: the success page as soon as the last file is in place (the
  // worker's finishing pause then goes on alone), the error or cancelled
  // page once the run has put everything back.
  void showProgressPage();
  // The final pages (steps 4 and 5), each with the Finish button.
  void showSuccessFinalPage();
  void showErrorFinalPage();
  void showCancelFinalPage();
  // Finish: opens the description document when asked to, closes the window.
  void finalize();
  // Closes the window at once. While the worker still runs (only its pause
  // after a complete installation can be left then) the window is hidden
  // and the main loop ends; it is destroyed with the dialog.
  void closeWindow();

  // Escape asks to cancel (true: handled); other keys take their course.
  bool processKeyPress(GdkEventKey* event);
  // Asks before cancelling. During the installation Yes asks the run to stop
  // (it rolls back); on any other page Yes closes the window. Once a stop
  // was asked for, or while a failed run is put back, it asks nothing: the
  // window closes when the run is over.
  void processCancel();
  // Asks the running installation to stop after the current file.
  void abortInstall();
  // A signal asked the program to end: a running installation is
  // cancelled without a question; otherwise the window closes (after the
  // run, once it has returned).
  void processInterrupt();
  // Signal handlers; `dialog` is the CInstallerDlg. The close request keeps
  // the window while files are being installed or put back (it is handled
  // as Escape is); elsewhere the window closes.
  static gboolean gtk_window_key_press_callback(GtkWidget*, GdkEventKey* event, void* dialog);
  static gboolean gtk_window_delete_callback(GtkWidget*, GdkEvent*, void* dialog);
  // Cancel, Back (step 2 only), and Next/Finish, which moves the flow on.
  static void button_clicked_handler(GtkWidget*, void* dialog);
  static void on_buttonPrev_clicked(GtkWidget*, void* dialog);
  static void on_buttonNext_clicked(GtkWidget*, void* dialog);

  // For tests and the trace.
  struct Widgets {
    GtkWidget* window;
    GtkWidget* fixed;
    GtkWidget* back;
    GtkWidget* next;
    GtkWidget* cancel;
  };
  Widgets widgets() const {
    return {m_window, m_fixed, m_buttonBack, m_buttonNext, m_buttonCancel};
  }
  unsigned step() const { return m_step; }
  // The worker has not returned yet (a run, its rollback or its finishing pause).
  bool workerRunning() const { return !m_session.returned(); }
  DirSelectPage* dirSelectPage() const { return m_dirPage.get(); }
  ProgressPage* progressPage() const { return m_progressPage.get(); }
  SuccessFinalPage* successPage() const { return m_successPage.get(); }
  MessagePage* welcomePage() const { return m_welcomePage.get(); }
  // The error or cancelled page when it is shown, else null.
  MessagePage* finalMessagePage() const;
  const std::u16string& targetDirectory() const { return m_targetDir; }
  // The package's description document below the target directory, and
  // the shell command that opens it.
  std::u16string documentPath() const;
  std::string descriptionCommand() const;

 private:
  static void on_main_window_destroy(GtkWidget*, void* dialog);
  static void wake_gui(void* dialog);
  static void on_signal(void* dialog);
  static gboolean on_signal_idle(void* dialog);
  // Pumps the GUI until the worker's run has returned, then ends the run:
  // the target is recorded in the starter configuration after success.
  const InstallOutcome& waitForWorker();
  // Tells about a starter file that could not be written, in an error box.
  void reportStarterNotWritten(const InstallOutcome& outcome);
  void showFinalPage(std::unique_ptr<MessagePage>& page, const char* key, unsigned step,
                     const char* name);

  // Flags: which starter files are written back, and the silent run.
  StarterState m_starter;
  bool m_silent;
  std::u16string m_targetDir;
  std::u16string m_packagePath;
  PackageReader m_package;
  std::u16string m_languageCode;

  // The frame (created by showMainWindow).
  unsigned m_step = kStepNone;
  std::unique_ptr<MessagePage> m_welcomePage;
  std::unique_ptr<DirSelectPage> m_dirPage;
  std::unique_ptr<ProgressPage> m_progressPage;
  std::unique_ptr<SuccessFinalPage> m_successPage;
  std::unique_ptr<MessagePage> m_errorPage;
  std::unique_ptr<MessagePage> m_cancelPage;
  WizardDialogPage* m_curPage = nullptr;
  GtkWidget* m_buttonBack = nullptr;
  GtkWidget* m_buttonNext = nullptr;
  GtkWidget* m_buttonCancel = nullptr;
  GdkPixbuf* m_sideImage = nullptr;
  bool m_confirmCancel = true;
  GtkWidget* m_fixed = nullptr;
  GdkPixbuf* m_icon = nullptr;
  GtkWidget* m_pageControl = nullptr;  // the control that reads out the page's text

  bool m_useCwd;
  int m_argc;
  char** m_argv;
  int m_width = 500;
  int m_height = 360;
  std::string m_title;

  // The run's outcome has been seen; cancelling means nothing any more.
  bool m_runOver = false;
  // A cancel question is on screen (no second one on top of it).
  bool m_asking = false;
  // A signal, or Escape or the close button while the run stops, asked the
  // window to close.
  bool m_closeRequested = false;
  guint m_signalSource = 0;  // a pending on_signal_idle

  // Declared last, destroyed first: its destructor waits for the worker,
  // which uses the package reader and the starter state above.
  InstallSession m_session;
};
