#include "app/installer_app.h"

#include <gtk/gtk.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "app/command_line.h"
#include "app/installation_setup.h"
#include "texts/resources.h"
#include "compat/text.h"
#include "install/install_process_data.h"
#include "install/install_thread.h"
#include "install/installer.h"
#include "package/package_loader.h"
#include "package/package_location.h"
#include "starter/config_locations.h"
#include "starter/starter_state.h"
#include "ui/installer_dlg.h"

namespace {

void print_line(FILE* stream, const std::u16string& text) {
  std::fprintf(stream, "%s\n", narrow_lib(text).c_str());
  std::fflush(stream);
}

// Stands in for a message box: the text goes to standard error.
void report(const std::u16string& text) { print_line(stderr, text); }

// Waits for SIGINT, SIGTERM and SIGHUP on a thread of its own while an
// installation runs, and turns them into a cancel request (the run then
// rolls back). The signals are blocked in every other thread from
// construction on; the old mask is back after destruction.
class SignalCancel {
 public:
  explicit SignalCancel(InstallProcessData& data) : m_data(data) {
    sigemptyset(&m_signals);
    for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&m_signals, s);
    pthread_sigmask(SIG_BLOCK, &m_signals, &m_oldMask);
    m_started = pthread_create(&m_thread, nullptr, &SignalCancel::watch, this) == 0;
  }
  ~SignalCancel() {
    if (m_started) {
      m_done = true;
      pthread_kill(m_thread, SIGTERM);  // wakes the watcher, which sees m_done
      pthread_join(m_thread, nullptr);
    }
    pthread_sigmask(SIG_SETMASK, &m_oldMask, nullptr);
  }
  SignalCancel(const SignalCancel&) = delete;
  SignalCancel& operator=(const SignalCancel&) = delete;

 private:
  static void* watch(void* self) {
    auto* me = static_cast<SignalCancel*>(self);
    int signal = 0;
    while (sigwait(&me->m_signals, &signal) == 0 && !me->m_done) me->m_data.setCancel(true);
    return nullptr;
  }

  InstallProcessData& m_data;
  sigset_t m_signals;
  sigset_t m_oldMask;
  pthread_t m_thread{};
  bool m_started = false;
  std::atomic<bool> m_done{false};
};

// The silent installation without a display: the wizard's steps with no
// widget, the outcome told on the standard streams.
class HeadlessInstall {
 public:
  explicit HeadlessInstall(bool useCwd) : m_useCwd(useCwd) {
    if (const char* delay = std::getenv("TPL_TEST_STATE_DELAY_MS"))
      m_testStateDelayMs = static_cast<unsigned>(std::strtoul(delay, nullptr, 10));
  }

  int run() {
    const std::string failure = prepare_installation(tpk_full_path(m_useCwd), m_package, m_starter);
    if (!failure.empty()) {
      report(LoadResString(failure));
      return 1;
    }
    const std::u16string target = m_starter.proposal;
    // Never install relative to the working directory.
    if (target.empty()) {
      report(LoadResString("IDS_SETUP_EMPTYTARGET"));
      report(LoadResString("IDS_ERROR_FINISH"));
      return 1;
    }

    m_data.setInstallState(0, LoadResString("IDS_PREPARECOPY"), 0);
    m_data.setWakeup(&HeadlessInstall::wake, this);
    m_data.init(&m_package, target);
    unsigned state = 0;
    std::u16string message;
    int percent = 0;
    {
      SignalCancel signals(m_data);
      if (m_thread.start(&HeadlessInstall::step, this) != 0) {
        report(LoadResString("IDS_INSTALL_ERROR"));
        return 1;
      }
      waitForOutcome(state, message, percent);
      // An error is told while the run rolls back, as the wizard does.
      if (state != 0 && state != ERROR_CANCELLED) report(message);
      m_thread.join();
    }

    if (state == 0 && percent >= 100) {
      print_line(stdout, LoadResString("IDS_SUCCESS_FINISH"));
      print_line(stdout, target);
      if (!record_template_dir(m_starter, target).ok()) {
        // The templates are installed, but the starter does not list them.
        report(LoadResString("IDS_INSTALL_ERROR") + u"\n" +
               (m_starter.writeOrdinary ? get_local_config_file_path()
                                        : get_local_config_file_path_base()));
        return 1;
      }
      return 0;
    }
    report(LoadResString(m_data.isCancelled() && state == ERROR_CANCELLED ? "IDS_CANCEL_FINISH"
                                                                          : "IDS_ERROR_FINISH"));
    return 1;
  }

 private:
  static bool step(void* self) {
    auto* me = static_cast<HeadlessInstall*>(self);
    {
      Installer installer;
      installer.run(&me->m_data);
    }
    me->m_runDone = true;
    wake(me);
    return false;
  }

  // Runs on the worker after each published state.
  static void wake(void* self) {
    auto* me = static_cast<HeadlessInstall*>(self);
    {
      std::lock_guard<std::mutex> lock(me->m_mutex);
      ++me->m_changes;
      me->m_changed.notify_one();
    }
    // Tests make each file take this long, after its state became visible.
    if (me->m_testStateDelayMs) usleep(me->m_testStateDelayMs * 1000);
  }

  // Sleeps until the worker publishes its outcome (or its run returns).
  void waitForOutcome(unsigned& state, std::u16string& message, int& percent) {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      const unsigned long seen = m_changes;
      m_data.getInstallState(state, message, percent);
      if (state != 0 || percent >= 100 || m_runDone) return;
      m_changed.wait(lock, [&] { return m_changes != seen; });
    }
  }

  bool m_useCwd;
  unsigned m_testStateDelayMs = 0;
  StarterState m_starter;
  PackageReader m_package;
  InstallProcessData m_data;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  unsigned long m_changes = 0;
  std::atomic<bool> m_runDone{false};
  InstallThread m_thread;  // last: destroyed first, after the worker is gone
};

}  // namespace

int run_headless_install(const LaunchOptions& options) {
  HeadlessInstall install(options.useCwd);
  return install.run();
}

int CInstallerApp::InitInstance() {
  m_langId = 0;
  const LaunchOptions options = parse_command_line(m_argc, m_argv);
  m_langId = options.langId;
  set_resource_lang(options.langId);
  m_title = LoadResString("IDR_MAINFRAME");

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
