#include "package_fixture.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <stdexcept>

#include "app/resources.h"
#include "compat/text.h"

using namespace testsupport;

namespace installtest {

_FILETIME file_time(int64_t seconds, long nanoseconds) {
  return TimespecToFileTime(seconds, nanoseconds);
}

void set_file_time(const std::string& path, const _FILETIME& time) {
  int64_t seconds;
  long nanoseconds;
  FileTimeToTimespec(time, seconds, nanoseconds);
  set_mtime(path, seconds, nanoseconds);
}

Sandbox::Sandbox() {
  for (const char* dir : {"target", "tmp", "work"})
    if (mkdir((m_root / dir).c_str(), 0755) != 0) throw std::runtime_error("mkdir sandbox");
  m_tmpdir = std::make_unique<ScopedEnv>("TMPDIR", tmp());
  set_resource_lang(kLangEn);
}

std::u16string Sandbox::targetDir() const { return widen_lib(target() + "/"); }

std::vector<std::string> Sandbox::backups() const {
  std::vector<std::string> names;
  if (DIR* d = opendir(tmp().c_str())) {
    while (dirent* e = readdir(d))
      if (std::string(e->d_name).rfind("zqstp", 0) == 0) names.push_back(e->d_name);
    closedir(d);
  }
  return names;
}

void Sandbox::buildPackage(PackageReader& reader, const std::vector<PackageFile>& files,
                           size_t lead) const {
  std::string bytes(lead, '#');
  std::vector<uint64_t> offsets(files.size());
  for (size_t i = files.size(); i-- > 0;) {
    offsets[i] = bytes.size();
    bytes += files[i].bytes;
  }
  bytes += "TRAILER";
  std::string path = m_root / "work/package.work";
  write_file(path, bytes);
  if (FileSystem::CreateFile(widen_lib(path), GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING,
                             reader.handle) != 0)
    throw std::runtime_error("cannot open working file");
  reader.files.clear();
  for (size_t i = 0; i < files.size(); ++i) {
    config::FileEntry entry;
    entry.name = widen_lib(files[i].name);
    entry.time = files[i].time;
    entry.offset = offsets[i];
    entry.size = static_cast<uint32_t>(files[i].bytes.size());
    reader.files.push_back(entry);
  }
}

std::string snapshot_difference(const Snapshot& before, const Snapshot& after) {
  std::string out;
  for (const auto& [path, value] : before) {
    auto it = after.find(path);
    if (it == after.end())
      out += "gone: " + path + "\n";
    else if (it->second != value)
      out += "changed: " + path + " (" + value.substr(0, 40) + " -> " + it->second.substr(0, 40) +
             ")\n";
  }
  for (const auto& [path, value] : after)
    if (!before.count(path)) out += "new: " + path + "\n";
  return out;
}

void StateLog::attach(InstallProcessData& d) {
  data = &d;
  d.setWakeup(&StateLog::wakeup, this);
}

void StateLog::wakeup(void* self) {
  auto* log = static_cast<StateLog*>(self);
  State s;
  log->data->getInstallState(s.state, s.message, s.percent);
  log->states.push_back(s);
  if (log->onState) log->onState(log->states.back());
}

}  // namespace installtest
