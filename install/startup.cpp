#include "install/startup.h"

#include <errno.h>

#include "compat/file_finder.h"
#include "install/recovery.h"
#include "package/working_file.h"

StartupReport prepare_installation(const std::u16string& packagePath, PackageReader& package,
                                   StarterState& starter, const std::atomic<bool>* stop) {
  StartupReport report;
  for (const RecoveredRun& run : recover_interrupted_runs())
    (run.complete ? report.restored : report.notRestored)
        .push_back(run.complete ? run.targetDir : run.backupDir);
  remove_orphan_working_files();

  FileFinder finder;
  if (packagePath.empty() || !finder.reset(packagePath)) {
    report.status = failure(ERROR_FILE_NOT_FOUND, Step::kFindPackage, packagePath, ENOENT);
    return report;
  }
  finder.close();
  starter = read_starter_state();
  LoadOptions options;
  options.stop = stop;
  report.status = load_package(package, packagePath, options);
  return report;
}

const char* startup_failure_key(const Status& status) {
  return status.step == Step::kFindPackage ? "IDS_ERROR_NOSOURCE" : load_failure_key(status);
}
