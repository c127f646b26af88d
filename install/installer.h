// One installation run: copies every catalogue file out of the working file
// into the templates directory under the rollback journal.
#pragma once

#include <string>

#include "compat/file_system.h"
#include "install/rollback.h"

class InstallProcessData;

class Installer {
 public:
  // Runs on the worker thread. 0 after a complete installation; otherwise the
  // code of the failure (or 1223 after a cancel), with everything rolled back.
  unsigned run(InstallProcessData* data);
  // Whether the file at `path` must be written: true when missing or strictly
  // older than `packageTime`.
  static bool compareFiles(const std::u16string& path, const _FILETIME& packageTime);

 private:
  unsigned stopOnError(unsigned code, unsigned percent);
  Rollback m_rollback;
  InstallProcessData* m_data = nullptr;
};
