#include "install/startup.h"

#include <errno.h>

#include "compat/file_finder.h"
#include "install/backup_dir.h"
#include "install/recovery.h"

StartupReport prepare_installation(const std::u16string& packagePath, PackageReader& package,
                                   StarterState& starter, const std::atomic<bool>* stop,
                                   const RecoveryProgress& progress) {
  StartupReport report;
  // Backups are kept in the temporary directory: one that others could
  // rename things in is used for nothing, recovery included.
  report.status = check_temp_directory();
  if (!report.status.ok()) return report;
  PlayBackControl control;
  control.stop = stop;
  control.progress = progress;
  const RecoveryReport recovery = recover_interrupted_runs(control);
  for (const RecoveredRun& run : recovery.runs)
    (run.complete ? report.restored : report.notRestored)
        .push_back(run.complete ? run.targetDir : run.backupDir);
  if (recovery.stopped) {
    report.status =
        failure(ERROR_CANCELLED, Operation::kRollback, std::u16string(), 0, "interrupted");
    return report;
  }

  FileFinder finder;
  if (packagePath.empty() || !finder.reset(packagePath)) {
    report.status = failure(ERROR_FILE_NOT_FOUND, Operation::kFindPackage, packagePath, ENOENT);
    return report;
  }
  finder.close();
  starter = read_starter_state();
  LoadOptions options;
  options.stop = stop;
  report.status = load_package(package, packagePath, options);
  return report;
}
