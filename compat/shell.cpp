#include "compat/shell.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "compat/file_ops.h"
#include "compat/file_system.h"
#include "compat/random_name.h"
#include "compat/text.h"

namespace {

std::atomic<unsigned long> g_commandCount{0};

// "<head>\"<escaped path>\"<tail>": the path goes between double quotes,
// escaped so the shell reads it literally.
std::string quoted_command(const char* head, const std::u16string& path, const char* tail) {
  return std::string(head) + "\"" + shell_escape(narrow_lib(path)) + "\"" + tail;
}

int exit_status(int status) { return (status >> 8) & 0xFF; }

bool is_directory(const std::string& path) {
  struct stat64 st;
  return file_ops().stat(AT_FDCWD, path, st, true) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

std::string temp_file_directory(const std::string& preferred) {
  const char* env = std::getenv("TMPDIR");
  std::string dir;
  if (env && is_directory(env))
    dir = env;
  else if (!preferred.empty() && is_directory(preferred))
    dir = preferred;
  else
    dir = "/tmp";
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir;
}

int run_linux_command(const char* command) {
  ++g_commandCount;
  int status = 0;
  return file_ops().run(command, status) == 0 ? status : -1;
}

unsigned long shell_command_count() { return g_commandCount; }

std::string shell_escape(const std::string& path) {
  std::string out;
  out.reserve(path.size());
  for (char c : path) {
    if (c == '"' || c == '$' || c == '`' || c == '\\') out.push_back('\\');
    out.push_back(c);
  }
  return out;
}

std::u16string get_one_line_output(const std::u16string& command) {
  ++g_commandCount;
  FILE* pipe = popen(narrow_lib(command).c_str(), "r");
  if (!pipe) return std::u16string();
  char line[255];
  std::string text;
  if (std::fgets(line, sizeof line, pipe)) {
    text = line;
    if (!text.empty()) text.pop_back();  // the newline (or the last character of an open line)
  }
  pclose(pipe);
  return widen_lib(text);
}

bool isWritePermitted(const std::u16string& directory) {
  std::u16string name;
  if (FileSystem::GetTempFileName(directory, u"Orvo", name) != 0) return false;
  FileSystem::DeleteFile(name);
  return true;
}

bool isDiskRoot(const std::u16string& path) { return path == u"/"; }

unsigned FileSystem::CreateDirectory(const std::u16string& path) {
  return CreateDirectories({path})[0];
}

std::vector<unsigned> FileSystem::CreateDirectories(const std::vector<std::u16string>& paths) {
  std::vector<std::string> commands;
  for (const std::u16string& path : paths)
    commands.push_back(quoted_command("mkdir -p ", path, " 2>/dev/null"));
  g_commandCount += commands.size();
  std::vector<int> statuses, errors;
  file_ops().runAll(commands, statuses, errors);
  std::vector<unsigned> codes;
  for (size_t i = 0; i < paths.size(); ++i)
    codes.push_back(errors[i]                       ? ERROR_INVALID_PARAMETER
                    : exit_status(statuses[i]) != 0 ? ERROR_FILE_NOT_FOUND
                                                    : 0);
  return codes;
}

unsigned FileSystem::RemoveDirectory(const std::u16string& path) {
  run_linux_command(quoted_command("rm -rf ", path, " 2>/dev/null").c_str());
  return 0;
}

unsigned FileSystem::MoveFile(const std::u16string& source, const std::u16string& destination) {
  std::string command = "mv \"" + shell_escape(narrow_lib(source)) + "\" \"" +
                        shell_escape(narrow_lib(destination)) + "\" 2>/dev/null";
  int status = run_linux_command(command.c_str());
  if (status == -1) return ERROR_INVALID_PARAMETER;
  return exit_status(status) == 1 ? ERROR_FILE_NOT_FOUND : 0;
}

unsigned FileSystem::DeleteFile(const std::u16string& path) {
  run_linux_command(quoted_command("rm -f ", path, " 2>/dev/null").c_str());
  return 0;
}

unsigned FileSystem::GetTempPath(std::u16string& path) {
  const char* env = std::getenv("TMPDIR");
  std::u16string dir = widen_lib(env && is_directory(env) ? env : "/tmp");
  if (dir.empty() || dir.back() != u'/') dir += u'/';
  path = dir;
  return 0;
}

unsigned FileSystem::GetTempFileName(const std::u16string& directory, const std::u16string& prefix,
                                     std::u16string& name) {
  // As tempnam: at most five bytes of the narrow prefix, "file" for none; a
  // name nothing stands at, tried TMP_MAX times. A name that is taken, or
  // whose status cannot be read for another reason, is never handed out:
  // the caller would delete the file as its own.
  std::string cut = narrow_lib(prefix).substr(0, 5);
  std::string base =
      temp_file_directory(narrow_lib(directory)) + "/" + (cut.empty() ? std::string("file") : cut);
  std::string candidate;
  for (long attempt = 0;; ++attempt) {
    if (attempt == TMP_MAX) return ERROR_CANTWRITE;
    candidate = base + random_suffix();
    struct stat64 st;
    if (lstat64(candidate.c_str(), &st) != 0) {
      if (errno == ENOENT) break;
      return ERROR_CANTWRITE;
    }
  }
  std::u16string wide = widen_lib(candidate);
  int status = run_linux_command(quoted_command("touch ", wide, " 2>/dev/null").c_str());
  name = wide;
  return status == 0 ? 0 : ERROR_CANTWRITE;
}

unsigned FileSystem::GetFreeSpaceTmpDir(unsigned* bytes) {
  if (!bytes) return ERROR_INVALID_PARAMETER;
  uint64_t full = 0;
  unsigned result = GetFreeSpaceTmpDir64(&full);
  *bytes = static_cast<unsigned>(full);
  return result;
}

unsigned FileSystem::GetFreeSpaceTmpDir64(uint64_t* bytes) {
  if (!bytes) return ERROR_INVALID_PARAMETER;
  *bytes = 0;
  std::u16string tmp;
  if (GetTempPath(tmp) != 0) return ERROR_INVALID_NAME;
  uint64_t free = 0;
  if (file_ops().freeSpace(narrow_lib(tmp), free) == 0) *bytes = free;
  return 0;
}
