// What every start does before its first page (or, without a display,
// before it installs): undo what interrupted runs left, find and load the
// package, read the starter configuration.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "compat/status.h"
#include "package/package_loader.h"
#include "starter/starter_state.h"

struct StartupReport {
  Status status;                            // ok, or why the start cannot go on
  std::vector<std::u16string> restored;     // targets of interrupted runs put back
  std::vector<std::u16string> notRestored;  // backup folders kept: not everything went back
};

// Steps of the recovery done and in all, now and then.
using RecoveryProgress = std::function<void(size_t done, size_t total)>;

// Refuses a temporary directory where other users could rename the backups
// (backup_dir.h); undoes interrupted runs of this user (their journals
// played back, their backup folders removed); then checks that
// `packagePath` names an existing package, reads the starter state and
// loads the package into `package`. A raised `stop` ends the recovery
// between two steps (the next start finishes it) or the load (code 1223
// either way). Nothing of this run is left in the temporary directory
// after a failure.
StartupReport prepare_installation(const std::u16string& packagePath, PackageReader& package,
                                   StarterState& starter, const std::atomic<bool>* stop = nullptr,
                                   const RecoveryProgress& progress = RecoveryProgress());
