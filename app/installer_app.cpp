#include "app/installer_app.h"

#include <gtk/gtk.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "app/command_line.h"
#include "compat/text.h"
#include "install/interrupts.h"
#include "install/session.h"
#include "install/startup.h"
#include "package/package_location.h"
#include "texts/resources.h"
#include "ui/failure_text.h"
#include "ui/installer_dlg.h"

namespace {

void print_line(FILE* stream, const std::string& text) {
  std::fprintf(stream, "%s\n", text.c_str());
  std::fflush(stream);
}

// Stands in for a message box: the text goes to standard error.
void report(const std::u16string& text) { print_line(stderr, narrow_lib(text)); }

// The line after the described text: what failed, on which path, and why.
void report_cause(const Status& status) {
  if (!status.ok()) print_line(stderr, describe(status));
}

// One progress line on standard error, rewritten in place, while standard
// error is a terminal; nothing otherwise.
class ProgressLine {
 public:
  ProgressLine() : m_terminal(isatty(STDERR_FILENO) == 1) {
    struct winsize size {};
    if (m_terminal && ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 8)
      m_width = size.ws_col;
  }
  ~ProgressLine() { clear(); }

  void show(int percent, const std::u16string& file) {
    if (!m_terminal) return;
    std::string line = std::to_string(percent) + "% ";
    std::string name = narrow_lib(file);
    // Keep the end of a long path, which names the file; never cut a
    // character in two.
    const size_t room = m_width - 1 - line.size();
    if (name.size() > room) {
      size_t from = name.size() - (room - 3);
      while (from < name.size() && (static_cast<unsigned char>(name[from]) & 0xC0) == 0x80) ++from;
      name = "..." + name.substr(from);
    }
    std::fprintf(stderr, "\r%s%s\033[K", line.c_str(), name.c_str());
    std::fflush(stderr);
    m_shown = true;
  }
  void clear() {
    if (!m_shown) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    m_shown = false;
  }

 private:
  bool m_terminal;
  bool m_shown = false;
  size_t m_width = 80;
};

// The exit status of a run without a display.
constexpr int kExitInstalled = 0;
constexpr int kExitFailed = 1;
constexpr int kExitStarterNotWritten = 2;
constexpr int kExitCancelled = 3;
constexpr int kExitNotRestored = 4;

void cancel_session(void* session) { static_cast<InstallSession*>(session)->cancel(); }

}  // namespace

int run_headless_install(const LaunchOptions& options) {
  StarterState starter;
  PackageReader package;
  StartupReport start;
  {
    // Undoing a large interrupted run takes a while: shown like a run.
    ProgressLine line;
    start = prepare_installation(tpk_full_path(options.useCwd), package, starter, &interrupt_flag(),
                                 [&line](size_t done, size_t total) {
                                   line.show(int(done * 100 / (total ? total : 1)),
                                             u"undoing an interrupted installation");
                                 });
  }
  for (const std::u16string& target : start.restored)
    print_line(stderr, "restored " + narrow_lib(target) + " after an interrupted installation");
  for (const std::u16string& backup : start.notRestored)
    print_line(stderr, "an interrupted installation could not be undone; its files are kept in " +
                           narrow_lib(backup));
  if (start.status.code == ERROR_CANCELLED || interrupted()) return kExitCancelled;
  if (!start.status.ok()) {
    report(LoadResString(start_failure_key(start.status)));
    report_cause(start.status);
    return kExitFailed;
  }

  const std::u16string target = starter.proposal;
  InstallSession session(package, starter);
  InterruptScope interrupts(&cancel_session, &session);
  if (!session.start(target)) {
    const InstallOutcome& outcome = session.outcome();
    report(LoadResString(refused_run_key(outcome.status)));
    report_cause(outcome.status);
    report(LoadResString("IDS_ERROR_FINISH"));
    return kExitFailed;
  }

  RunProgress last;
  {
    ProgressLine line;
    unsigned long seen = session.changeCount();
    while (!(last = session.progress()).settled()) {
      line.show(last.percent, run_state_text(last.phase, last.path));
      seen = session.waitForChange(seen);
    }
  }
  // An error is told while the run rolls back, as the wizard does.
  if (classify_run(last.state, last.percent) == OutcomeKind::kFailed)
    report(run_state_text(last.phase, last.path));
  session.waitReturned();

  const InstallOutcome& outcome = session.finish();
  switch (outcome.kind) {
    case OutcomeKind::kInstalled:
    case OutcomeKind::kStarterNotWritten:
      // The success page's text and the directory, on standard error like
      // every other text of the run: standard output stays empty.
      report(LoadResString("IDS_SUCCESS_FINISH"));
      report(target);
      if (outcome.kind == OutcomeKind::kInstalled) return kExitInstalled;
      // The templates are installed, but the starter does not list them.
      report(LoadResString("IDS_INSTALL_ERROR") + u"\n" + outcome.status.path);
      report_cause(outcome.status);
      return kExitStarterNotWritten;
    case OutcomeKind::kCancelled:
      report(LoadResString("IDS_CANCEL_FINISH"));
      return kExitCancelled;
    case OutcomeKind::kFailed:
      report_cause(outcome.status);
      if (!outcome.keptBackupDir.empty()) {
        // The target is not as it was: the old files wait in the backup.
        print_line(stderr, "not everything could be put back; the old files are kept in " +
                               narrow_lib(outcome.keptBackupDir));
        return kExitNotRestored;
      }
      report(LoadResString("IDS_ERROR_FINISH"));
      return kExitFailed;
  }
  return kExitFailed;
}

int CInstallerApp::InitInstance() {
  m_langId = 0;
  const LaunchOptions options = parse_command_line(m_argc, m_argv);
  m_langId = options.langId;
  set_resource_lang(options.langId);
  m_title = LoadResString("IDR_MAINFRAME");
  // The toolkit's own texts (Yes and No, the folder chooser) and the
  // system's reasons follow the interface language where translations
  // exist; the toolkit reads the choice from here.
  g_setenv("LANGUAGE", narrow_lib(options.languageCode).c_str(), TRUE);

  if (!gtk_init_check(&m_argc, &m_argv)) {
    if (options.silent) return run_headless_install(options);
    std::fprintf(stderr,
                 "installer: cannot open the display (DISPLAY is %s).\n"
                 "Start it in a graphical session, or add -S to install silently without a "
                 "window.\n",
                 std::getenv("DISPLAY") && *std::getenv("DISPLAY") ? "not reachable" : "not set");
    return 1;
  }
  CInstallerDlg dialog(m_argc, m_argv, options.silent, narrow_lib(m_title), options.languageCode,
                       options.useCwd);
  dialog.DoModal();
  return 0;
}
