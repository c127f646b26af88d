#include "install/backup_dir.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <unordered_set>

#include "compat/file_ops.h"
#include "compat/file_system.h"
#include "compat/text.h"
#include "install/journal.h"
#include "install/paths.h"

namespace {

const char kPrefix[] = "zqstp";

// `path` without its final "/", so that a link at the name is seen as a link.
std::string without_slash(const std::string& path) {
  return path.size() > 1 && path.back() == '/' ? path.substr(0, path.size() - 1) : path;
}

// Whether the directory open as `fd` has entries.
bool has_entries(int fd) {
  std::vector<std::string> names;
  return file_ops().list(fd, names) != 0 || !names.empty();
}

}  // namespace

std::string temp_directory() {
  std::u16string dir;
  FileSystem::GetTempPath(dir);
  return narrow_lib(dir);
}

Status check_temp_directory() {
  const std::string dir = temp_directory();
  struct stat64 st;
  if (file_ops().stat(AT_FDCWD, dir, st, true) != 0) return Status();
  const bool othersMayWrite =
      (st.st_mode & (S_IWGRP | S_IWOTH)) != 0 || (st.st_uid != geteuid() && st.st_uid != 0);
  if (othersMayWrite && !(st.st_mode & S_ISVTX))
    return failure(ERROR_ACCESS_DENIED, Operation::kCheckTemp, widen_lib(dir), 0,
                   "other users may rename what is in it (it is writable by them and has no "
                   "sticky bit); set TMPDIR to a folder of your own");
  return Status();
}

bool is_backup_name(const std::string& name) {
  const size_t n = sizeof kPrefix - 1;
  if (name.size() <= n || name.compare(0, n, kPrefix) != 0) return false;
  for (size_t i = n; i < name.size(); ++i)
    if (name[i] < '0' || name[i] > '9') return false;
  return true;
}

unsigned BackupDir::make() {
  close();
  const std::string base = temp_directory();
  // Names that could not be taken although they looked free; a bound keeps a
  // temporary directory where nothing can be locked from looping forever.
  unsigned lost = 0;
  for (unsigned n = 0; lost < 1000; ++n) {
    const std::string candidate = base + kPrefix + std::to_string(n);
    if (path_exists(candidate)) continue;
    unsigned code = FileSystem::CreateDirectory(widen_lib(candidate + "/"));
    if (code != 0) {
      if (path_exists(candidate)) continue;  // made by someone else meanwhile
      return code;
    }
    if (take(candidate + "/")) {
      if (!has_entries(m_fd) && file_ops().chmod(m_fd, 0700) == 0) {
        m_number = n;
        return 0;
      }
      // Held, but not to be used: it goes again while it is still an empty
      // folder (rmdir never removes anything else).
      if (stillNamed()) file_ops().unlink(AT_FDCWD, candidate, true);
      close();
    }
    // Not taken: another start's recovery holds it and removes it, or the
    // name is someone else's now. Removing it by name could remove another
    // run's folder made there meanwhile.
    ++lost;
  }
  return ERROR_CANTWRITE;
}

bool BackupDir::take(const std::string& path, bool* held) {
  close();
  int fd = -1;
  if (file_ops().open(AT_FDCWD, without_slash(path), O_RDONLY | O_DIRECTORY | O_NOFOLLOW, 0, fd) !=
      0)
    return false;
  struct stat64 st;
  m_fd = fd;
  m_path = path;
  const int locked = file_ops().lock(fd, LOCK_EX);
  if (locked != 0 || file_ops().stat(fd, std::string(), st, true) != 0 || !S_ISDIR(st.st_mode) ||
      st.st_uid != geteuid() || !stillNamed()) {
    if (held) *held = locked == EWOULDBLOCK;
    close();
    return false;
  }
  keep_open_in_commands(fd);
  return true;
}

bool BackupDir::stillNamed() const {
  struct stat64 open, named;
  return m_fd >= 0 && file_ops().stat(m_fd, std::string(), open, true) == 0 &&
         file_ops().stat(AT_FDCWD, without_slash(m_path), named, false) == 0 &&
         S_ISDIR(named.st_mode) && open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

bool BackupDir::holdsOnly(const std::vector<std::string>& saved) const {
  std::unordered_set<std::string> allowed(saved.begin(), saved.end());
  allowed.insert(kJournalName);
  allowed.insert(kKeptMarkName);
  allowed.insert(kLengthMarkName);
  // Walk below the open directory, never through a link.
  std::vector<std::pair<int, std::string>> pending;
  int top = -1;
  if (file_ops().open(m_fd, ".", O_RDONLY | O_DIRECTORY, 0, top) != 0) return false;
  pending.emplace_back(top, std::string());
  bool only = true;
  while (!pending.empty()) {
    auto [fd, rel] = pending.back();
    pending.pop_back();
    std::vector<std::string> names;
    if (file_ops().list(fd, names) != 0) only = false;
    for (const std::string& name : names) {
      if (!only) break;
      const std::string path = rel.empty() ? name : rel + "/" + name;
      struct stat64 st;
      if (file_ops().stat(fd, name, st, false) != 0) {
        only = false;
      } else if (S_ISDIR(st.st_mode)) {
        int inner = -1;
        if (file_ops().open(fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW, 0, inner) != 0)
          only = false;
        else
          pending.emplace_back(inner, path);
      } else if (!allowed.count(path)) {
        only = false;
      }
    }
    file_ops().close(fd);
  }
  for (auto& [fd, rel] : pending) file_ops().close(fd);
  return only;
}

void BackupDir::remove() {
  if (stillNamed()) FileSystem::RemoveDirectory(widen_lib(m_path));
  close();
}

void BackupDir::markKept() {
  int fd = -1;
  if (file_ops().open(m_fd, kKeptMarkName, O_WRONLY | O_CREAT | O_NOFOLLOW, 0600, fd) == 0)
    file_ops().close(fd);
}

bool BackupDir::isMarkedKept() const {
  struct stat64 st;
  return m_fd >= 0 && file_ops().stat(m_fd, kKeptMarkName, st, false) == 0;
}

void BackupDir::close() {
  if (m_fd >= 0) {
    stop_keeping_open_in_commands(m_fd);
    file_ops().close(m_fd);  // closing drops the lock
  }
  m_fd = -1;
}
