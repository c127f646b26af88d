// One installation, from "target chosen" to "outcome known", for both front
// ends: the wizard pumps its GUI loop and renders the outcome on its pages;
// the run without a display waits and renders it on the standard streams.
// The session refuses an empty target, runs the copy on the worker thread,
// records the target in the starter configuration after success, and sums
// up how the run ended in one outcome value.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>

#include "compat/status.h"
#include "install/install_process_data.h"
#include "install/install_thread.h"
#include "package/package_loader.h"
#include "starter/starter_state.h"

enum class OutcomeKind {
  kInstalled,          // every file in place, the starter lists the target
  kFailed,             // nothing installed: the target is as it was (unless keptBackupDir)
  kCancelled,          // the user asked to stop: the target is as it was
  kStarterNotWritten,  // installed, but the starter file could not be updated
};

struct InstallOutcome {
  OutcomeKind kind = OutcomeKind::kFailed;
  // What failed: the run's operation and path, or the starter file and why.
  // A run that could not start has the operation kNone (an empty target) or
  // kStartWorker.
  Status status;
  // Set when the rollback could not put everything back: the folder that
  // still holds the user's old files.
  std::u16string keptBackupDir;
};

// How a run that has published its last state ended, from that state, its
// percent and whether a cancel was asked for.
OutcomeKind classify_run(unsigned state, int percent);

// The latest state a run published, read in one go.
struct RunProgress {
  unsigned state = 0;
  RunPhase phase = RunPhase::kPreparing;
  std::u16string path;  // the file being installed (kCopying)
  int percent = 0;
  bool returned = false;  // the run had returned before the state was read

  // The run has published its last state (installed, failed or cancelled)
  // or has returned: this state is final.
  bool settled() const { return state != 0 || percent >= 100 || returned; }
};

class InstallSession {
 public:
  // `package` and `starter` must outlive the session.
  InstallSession(PackageReader& package, StarterState& starter);
  ~InstallSession();  // waits for the worker
  InstallSession(const InstallSession&) = delete;
  InstallSession& operator=(const InstallSession&) = delete;

  // Called on the worker after every published state and when its run has
  // returned, so that a waiting GUI loop wakes up at once. May be null.
  void setWakeup(InstallProcessData::Wakeup wakeup, void* context);

  // Starts the run into `target`. False when it cannot start (an empty
  // target, no thread): the outcome is final then and nothing was touched.
  bool start(const std::u16string& target);

  RunProgress progress();
  bool settled() { return progress().settled(); }
  // No run is under way: none was started, or it has returned (rollback
  // or finishing pause over).
  bool returned() const { return m_returned; }
  // Blocking forms of the two, for a caller with no event loop.
  void waitSettled();
  void waitReturned();
  // Sleeps until the run publishes a state after change number `seen` (or
  // returns); gives the new change number. For progress displays.
  unsigned long waitForChange(unsigned long seen);
  unsigned long changeCount();

  // Asks the run to stop after the current file; it then rolls back.
  void cancel();
  bool cancelRequested();

  // Once returned(), or once a complete installation has been published
  // (its finishing pause may still run): records the target in the starter
  // configuration after a complete installation, and returns the outcome.
  // Joins the worker unless the installation was complete. Later calls
  // return the same outcome.
  const InstallOutcome& finish();
  const InstallOutcome& outcome() const { return m_outcome; }

  // The worker's job: one installation run. Always false (run once).
  static bool runInstallation(void* session);

 private:
  static void onStateChange(void* self);
  void changed();

  PackageReader& m_package;
  StarterState& m_starter;
  std::u16string m_target;
  InstallProcessData m_data;
  InstallProcessData::Wakeup m_wakeup = nullptr;
  void* m_wakeupContext = nullptr;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  unsigned long m_changes = 0;
  std::atomic<bool> m_returned{true};  // no run under way
  bool m_finished = false;
  Status m_runFailure;
  std::u16string m_keptBackupDir;
  InstallOutcome m_outcome;
  InstallThread m_thread;  // last: destroyed first, after the worker is gone
};

// Called on the worker after each published state. The program's own
// definition does nothing; test programs link one that slows the run down,
// so that a person or a script can act while it is under way.
void after_install_state_published();
