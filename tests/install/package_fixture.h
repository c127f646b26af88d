// Test helpers for the installation engine: a private sandbox (target, TMPDIR
// and working file) and a package reader filled straight from bytes.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "compat/file_system.h"
#include "compat/text.h"
#include "install/install_process_data.h"
#include "install/installer.h"
#include "package/package_layout.h"
#include "package/package_loader.h"
#include "support/test_support.h"

namespace installtest {
using namespace testsupport;

inline std::u16string w(const std::string& s) { return widen_lib(s); }
inline _FILETIME file_time(int64_t seconds, long ns = 0) { return TimespecToFileTime(seconds, ns); }
inline _FILETIME plus(const _FILETIME& t, int64_t ticks) {
  return U64ToFileTime(FileTimeToU64(t) + uint64_t(ticks));
}
inline void set_file_time(const std::string& path, const _FILETIME& time) {
  int64_t seconds;
  long ns;
  FileTimeToTimespec(time, seconds, ns);
  set_mtime(path, seconds, ns);
}

// One catalogue entry with its contents; the name may use "\\".
struct PackageFile {
  std::string name, bytes;
  _FILETIME time;
};

// root/target (the template directory), root/tmp (TMPDIR), root/work.
class Sandbox {
 public:
  Sandbox() : m_tmpdir("TMPDIR", m_root / "tmp") {
    for (const char* dir : {"target", "tmp", "work"})
      if (mkdir((m_root / dir).c_str(), 0755) != 0) throw std::runtime_error("mkdir sandbox");
  }
  std::string root() const { return m_root.path(); }
  std::string target() const { return m_root / "target"; }
  std::string tmp() const { return m_root / "tmp"; }
  std::string work() const { return m_root / "work/package.work"; }
  std::u16string targetDir() const { return w(target() + "/"); }
  // The sandbox as a user sees it: everything but the temporary directory,
  // whose own time changes with any run (its contents are checked apart).
  Snapshot world() const {
    Snapshot s = snapshot(root());
    for (auto it = s.begin(); it != s.end();)
      it = it->first == "tmp" || it->first.rfind("tmp/", 0) == 0 ? s.erase(it) : std::next(it);
    return s;
  }

  // Writes the contents (after filler, in reverse order so that offsets
  // matter) into the working file and fills `reader` with the catalogue,
  // each entry with the check a built package gives it.
  void buildPackage(PackageReader& reader, const std::vector<PackageFile>& files) const {
    std::string bytes(37, '#');
    reader.files.assign(files.size(), FileEntry());
    for (size_t i = files.size(); i-- > 0;) {
      reader.files[i].name = w(files[i].name);
      reader.files[i].time = files[i].time;
      reader.files[i].offset = bytes.size();
      reader.files[i].size = uint32_t(files[i].bytes.size());
      const FileEntry& e = reader.files[i];
      uint64_t time = (uint64_t(e.time.dwHighDateTime) << 32) | e.time.dwLowDateTime;
      uint32_t contentsCrc = layout::crc32_of(0, files[i].bytes.data(), e.size);
      reader.files[i].hasCheck = true;
      reader.files[i].fieldsCrc = layout::fields_crc(e.name, time, e.size);
      reader.files[i].recordCrc = layout::record_crc(e.name, time, e.size, contentsCrc);
      bytes += files[i].bytes;
    }
    write_file(work(), bytes + "TRAILER");
    if (FileSystem::CreateFile(w(work()), GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING,
                               reader.handle) != 0)
      throw std::runtime_error("cannot open working file");
  }

 private:
  TempDir m_root;
  ScopedEnv m_tmpdir;
};

// The paths where two snapshots differ, "" when equal (short enough to print).
inline std::string snapshot_difference(const Snapshot& a, const Snapshot& b) {
  std::string out;
  for (const auto& [path, value] : a)
    if (!b.count(path) || b.at(path) != value) out += path + " ";
  for (const auto& entry : b)
    if (!a.count(entry.first)) out += "new:" + entry.first + " ";
  return out;
}

// Every state a run publishes, recorded from the wakeup hook.
struct StateLog {
  struct State {
    unsigned state;
    RunPhase phase;
    std::u16string path;
    int percent;
  };
  std::vector<State> states;
  std::function<void(const State&)> onState;  // after each state, may be empty
  InstallProcessData* data = nullptr;

  void attach(InstallProcessData& d) {
    data = &d;
    d.setWakeup(
        [](void* self) {
          auto* log = static_cast<StateLog*>(self);
          State s;
          log->data->getInstallState(s.state, s.phase, s.path, s.percent);
          log->states.push_back(s);
          if (log->onState) log->onState(s);
        },
        this);
  }
};

// One run with fresh run data, its states going to `log` when given. The
// cancel flag is set as an earlier run may have left it: init clears it.
inline unsigned run_install(PackageReader& reader, const std::u16string& dir, Installer& installer,
                            StateLog* log = nullptr) {
  InstallProcessData data;
  if (log) log->attach(data);
  data.setCancel(true);
  data.init(&reader, dir);
  return installer.run(&data);
}
// The same with a fresh Installer, by default without the finishing pause.
inline unsigned run_install(PackageReader& reader, const std::u16string& dir, StateLog& log,
                            int pauseMs = 0) {
  Installer installer(pauseMs);
  return run_install(reader, dir, installer, &log);
}

}  // namespace installtest
