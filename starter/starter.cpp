#include "starter/starter.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <unordered_set>

#include "compat/file_finder.h"
#include "compat/file_system.h"
#include "compat/text.h"
#include "starter/config_file_io.h"
#include "starter/config_locations.h"

namespace {

// Makes the re-reading, changing and writing of one starter file exclusive
// between installers: an flock on "<file>.lock" beside it, held from before
// the file is read until after it is written, then removed. Whoever locks a
// lock file that was removed meanwhile locks the new one instead, so at any
// time one process holds the file that the name leads to. The directory is
// made first when it is missing (the write would make it anyway).
// Never an obstacle: when the lock file cannot be made (a folder that
// cannot be written, where the write fails by itself) or another process
// holds it for longer than kLockWait, the work goes on without it.
class StarterFileLock {
 public:
  explicit StarterFileLock(const std::u16string& file) : m_path(narrow_lib(file) + ".lock") {
    const auto deadline = std::chrono::steady_clock::now() + kLockWait;
    do {
      int fd = open_lock_file(file);
      if (fd < 0) return;
      if (!wait_for(fd, deadline)) {
        close(fd);
        return;
      }
      if (still_named(fd)) {
        m_fd = fd;
        return;
      }
      close(fd);
    } while (std::chrono::steady_clock::now() < deadline);
  }
  ~StarterFileLock() {
    if (m_fd < 0) return;
    unlink(m_path.c_str());
    close(m_fd);
  }
  StarterFileLock(const StarterFileLock&) = delete;
  StarterFileLock& operator=(const StarterFileLock&) = delete;

 private:
  static constexpr std::chrono::seconds kLockWait{10};

  int open_lock_file(const std::u16string& file) const {
    const int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    int fd = open(m_path.c_str(), flags, 0600);
    if (fd < 0 && errno == ENOENT) {
      size_t cut = file.find_last_of(u"\\/");
      if (cut != std::u16string::npos) FileSystem::CreateDirectory(file.substr(0, cut));
      fd = open(m_path.c_str(), flags, 0600);
    }
    return fd;
  }

  static bool wait_for(int fd, std::chrono::steady_clock::time_point deadline) {
    for (;;) {
      if (flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
      if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() >= deadline)
        return false;
      struct timespec pause = {0, 5 * 1000 * 1000};
      nanosleep(&pause, nullptr);
    }
  }

  // Whether the name still leads to the file `fd` has locked.
  bool still_named(int fd) const {
    struct stat held, named;
    return fstat(fd, &held) == 0 && lstat(m_path.c_str(), &named) == 0 &&
           held.st_dev == named.st_dev && held.st_ino == named.st_ino;
  }

  std::string m_path;
  int m_fd = -1;
};

// Texts already met, case ignored as compare_nocase ignores it.
class NocaseSeen {
 public:
  // True the first time an equal text is offered.
  bool first(const std::u16string& text) { return m_keys.insert(nocase_key(text)).second; }

 private:
  std::unordered_set<std::string> m_keys;
};

}  // namespace

std::u16string Starter::localPath() const {
  return m_base ? get_local_config_file_path_base() : get_local_config_file_path();
}

std::u16string Starter::sharedPath() const {
  return m_base ? get_allusers_config_file_path_base() : get_allusers_config_file_path();
}

void Starter::loadConfig() {
  read_config_file(sharedPath(), m_shared);
  read_config_file(localPath(), m_local);
}

void Starter::getConfigFilesValues(bool localFirst, const char16_t* key,
                                   std::vector<std::u16string>& out, bool stopAfterTwo) const {
  std::vector<const ConfigFile*> order;
  order.push_back(localFirst ? &m_local : &m_third);
  order.push_back(&m_shared);
  if (!stopAfterTwo) order.push_back(localFirst ? &m_third : &m_local);

  NocaseSeen taken;
  const std::u16string keyText(key);
  for (const ConfigFile* config : order) {
    const std::vector<std::u16string>* values = config->findValues(keyText);
    if (!values) continue;
    for (const std::u16string& value : *values)
      if (taken.first(value)) out.push_back(value);
  }
}

void Starter::replaceWrongSeparators(std::vector<std::u16string>& list) {
  for (std::u16string& entry : list) replace_all(entry, kBadPathSeparator, kPathSeparator);
}

void Starter::removePathDuplicates(std::vector<std::u16string>& list) {
  NocaseSeen seen;
  std::vector<std::u16string> kept;
  kept.reserve(list.size());
  for (std::u16string& entry : list) {
    std::u16string normal = entry;
    if (!normal.empty() && normal.back() != u'\\' && normal.back() != u'/') normal += u'\\';
    if (seen.first(normal)) kept.push_back(std::move(entry));
  }
  list.swap(kept);
}

void Starter::getTmpltsList(std::vector<std::u16string>& list, bool localFirst) {
  loadConfig();
  getConfigFilesValues(localFirst, kConfigFileFieldTemplatesLocation, list, localFirst);
  replaceWrongSeparators(list);
  removePathDuplicates(list);
}

Status Starter::setTmpltsList(const std::vector<std::u16string>& list) {
  StarterFileLock lock(localPath());
  loadConfig();
  std::vector<std::u16string> unique = list;
  removePathDuplicates(unique);
  m_local.setValues(kConfigFileFieldTemplatesLocation, unique);
  return saveLocalConfigFile();
}

Status Starter::prependTmpltsDir(const std::u16string& dir, std::vector<std::u16string>& written) {
  StarterFileLock lock(localPath());
  loadConfig();
  // The list as the files hold it now: what another program added since the
  // installer started is kept.
  std::vector<std::u16string> now;
  getConfigFilesValues(true, kConfigFileFieldTemplatesLocation, now, true);
  replaceWrongSeparators(now);
  removePathDuplicates(now);
  written.assign(1, dir);
  written.insert(written.end(), now.begin(), now.end());
  removePathDuplicates(written);
  m_local.setValues(kConfigFileFieldTemplatesLocation, written);
  return saveLocalConfigFile();
}

Status Starter::saveLocalConfigFile() {
  std::u16string path = localPath();
  FileFinder finder;
  if (!finder.reset(path)) {
    size_t cut = path.find_last_of(u"\\/");
    if (cut != std::u16string::npos) FileSystem::CreateDirectory(path.substr(0, cut));
  }
  return write_config_file(path, m_local);
}

void get_tmplts_list(std::vector<std::u16string>& list, bool localFirst, bool base) {
  Starter(base).getTmpltsList(list, localFirst);
}

Status set_tmplts_list(const std::vector<std::u16string>& list, bool base) {
  return Starter(base).setTmpltsList(list);
}
