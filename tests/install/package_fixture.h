// Test helpers for the installation engine: a private sandbox (target
// directory, temporary directory, working file) and a package reader built
// straight from bytes, without the package loader.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "compat/file_system.h"
#include "install/install_process_data.h"
#include "package/package_loader.h"
#include "support/test_support.h"

namespace installtest {

// A FILETIME from seconds since 1970 and nanoseconds (a multiple of 100).
_FILETIME file_time(int64_t seconds, long nanoseconds = 0);
// Sets a file's modification time from a FILETIME (100-ns exact).
void set_file_time(const std::string& path, const _FILETIME& time);

// One catalogue entry with its contents.
struct PackageFile {
  std::string name;  // as stored in the catalogue ("\\" allowed)
  std::string bytes;
  _FILETIME time;
};

// root/          private folder, removed at the end
//   target/      the template directory (created)
//   tmp/         TMPDIR for the test's lifetime
//   work/        the working file
class Sandbox {
 public:
  Sandbox();
  std::string root() const { return m_root.path(); }
  std::string target() const { return m_root / "target"; }
  std::string tmp() const { return m_root / "tmp"; }
  // The target directory as the engine receives it (ends in "/").
  std::u16string targetDir() const;
  // Names in tmp/ that start with "zqstp".
  std::vector<std::string> backups() const;

  // Writes the contents into a working file (after `lead` filler bytes, in
  // reverse catalogue order so that offsets matter) and fills `reader`.
  void buildPackage(PackageReader& reader, const std::vector<PackageFile>& files,
                    size_t lead = 37) const;

 private:
  testsupport::TempDir m_root;
  std::unique_ptr<testsupport::ScopedEnv> m_tmpdir;
};

// "" when the snapshots are equal, else the differing paths (short enough to
// print, unlike the snapshots themselves).
std::string snapshot_difference(const testsupport::Snapshot& before,
                                const testsupport::Snapshot& after);

// Every state published by a run, recorded from the wakeup hook.
struct StateLog {
  struct State {
    unsigned state;
    std::u16string message;
    int percent;
  };
  std::vector<State> states;
  // Called after each recorded state (on the publishing thread), may be empty.
  std::function<void(const State&)> onState;
  InstallProcessData* data = nullptr;

  void attach(InstallProcessData& d);
  static void wakeup(void* self);
};

}  // namespace installtest
