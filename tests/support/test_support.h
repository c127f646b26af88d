// Helpers shared by the tests: private temporary folders and tree snapshots.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace testsupport {

// A fresh directory under the system temporary folder, removed with its
// contents on destruction. path() has no trailing "/".
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return m_path; }
  std::string operator/(const std::string& relative) const { return m_path + "/" + relative; }

 private:
  std::string m_path;
};

// Sets an environment variable for the lifetime of the object, then restores it.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string m_name;
  bool m_had = false;
  std::string m_old;
};

// Writes `bytes` to `path`, making its folders first; throws when it cannot.
void write_file(const std::string& path, const std::string& bytes);
std::string read_file(const std::string& path);
bool exists(const std::string& path);
// Sets the modification (and access) time, nanosecond exact.
void set_mtime(const std::string& path, int64_t seconds, long nanoseconds);

// Everything below a directory by lstat: relative path -> its mode (octal),
// its modification time to the nanosecond (folders included), and a regular
// file's bytes or a link's target; compare two snapshots with ==.
using Snapshot = std::map<std::string, std::string>;
Snapshot snapshot(const std::string& root);

}  // namespace testsupport
