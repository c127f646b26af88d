// Runs a package tool through the shell, with its standard output and error apart.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

#include "support/test_support.h"

namespace tooltest {

struct Result {
  int status;  // exit status, -1 when the command did not exit normally
  std::string out;
  std::string err;
};

// `command` is a shell command line; "$ERR" is not to be used by it.
inline Result run(const std::string& command) {
  testsupport::TempDir errDir;
  const std::string errFile = errDir / "stderr";
  Result result{-1, "", ""};
  FILE* pipe = popen(("( " + command + " ) 2>'" + errFile + "'").c_str(), "r");
  char buffer[4096];
  for (size_t n; pipe && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
    result.out.append(buffer, n);
  const int status = pipe ? pclose(pipe) : -1;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  if (testsupport::exists(errFile)) result.err = testsupport::read_file(errFile);
  return result;
}

// A path in single quotes for the shell.
inline std::string q(const std::string& path) {
  std::string out = "'";
  for (char c : path) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// Writes `contents` to `path` with the given modification time.
inline void put(const std::string& path, const std::string& contents, int64_t seconds = 1600000000,
                long nanoseconds = 0) {
  testsupport::write_file(path, contents);
  testsupport::set_mtime(path, seconds, nanoseconds);
}

// The package tools under test, quoted for the shell.
inline const std::string kBuild = q(TPK_BUILD_EXE);
inline const std::string kList = q(TPK_LIST_EXE);

inline bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace tooltest
