#include "compat/file_system.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>

#include "compat/file_ops.h"
#include "compat/text.h"

std::atomic<unsigned> FileSystem::ms_lastError{0};

namespace {

unsigned fail_from_errno() { return setLastErrorByErrNo(errno); }
unsigned fail_with(int error) { return setLastErrorByErrNo(error); }

}  // namespace

unsigned setLastErrorByErrNo(int error) {
  unsigned code = error == ENOENT ? ERROR_FILE_NOT_FOUND : ERROR_INVALID_PARAMETER;
  FileSystem::ms_lastError = code;
  return code;
}

void Sleep(int milliseconds) {
  if (milliseconds <= 0) return;
  struct timespec left = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

unsigned FileSystem::CreateFile(const std::u16string& path, unsigned access, unsigned,
                                unsigned creation, HANDLE& handle) {
  ms_lastError = 0;
  int flags = O_RDONLY;
  if (access & GENERIC_WRITE) flags = (access & GENERIC_READ) ? O_RDWR : O_WRONLY;
  if (creation == CREATE_ALWAYS) flags |= O_CREAT;
  if (creation == TRUNCATE_EXISTING) flags |= O_TRUNC;
  int fd = -1;
  if (int error = file_ops().open(AT_FDCWD, narrow_lib(path), flags, 0660, fd))
    return fail_with(error);
  handle = handle_of(fd);
  return 0;
}

unsigned FileSystem::ReadFile(HANDLE h, void* buffer, unsigned count, unsigned* read,
                              _OVERLAPPED* overlapped) {
  ms_lastError = 0;
  if (!read && !overlapped) {
    ms_lastError = ERROR_INVALID_PARAMETER;
    return ERROR_INVALID_PARAMETER;
  }
  if (!read) return GetLastError();
  *read = 0;
  auto* bytes = static_cast<char*>(buffer);
  while (*read < count) {
    size_t n = 0;
    if (int error = file_ops().read(fd_of(h), bytes + *read, count - *read, n))
      return fail_with(error);
    if (n == 0) break;
    *read += static_cast<unsigned>(n);
  }
  return 0;
}

unsigned FileSystem::WriteFile(HANDLE h, const void* buffer, unsigned count, unsigned* written,
                               _OVERLAPPED* overlapped) {
  ms_lastError = 0;
  if (!written && !overlapped) {
    ms_lastError = ERROR_INVALID_PARAMETER;
    return ERROR_INVALID_PARAMETER;
  }
  if (h == INVALID_HANDLE_VALUE) {
    ms_lastError = ERROR_INVALID_HANDLE;
    return ERROR_INVALID_HANDLE;
  }
  if (!written) return 0;
  size_t n = 0;
  *written = file_ops().write(fd_of(h), buffer, count, n) ? 0xFFFFFFFFu : static_cast<unsigned>(n);
  return GetLastError();
}

uint32_t FileSystem::SetFilePointer(HANDLE h, long low, long* high, unsigned method) {
  ms_lastError = 0;
  if (h == INVALID_HANDLE_VALUE) {
    ms_lastError = ERROR_INVALID_HANDLE;
    return 0xFFFFFFFFu;
  }
  int whence = method == FILE_CURRENT ? SEEK_CUR : method == FILE_END ? SEEK_END : SEEK_SET;
  // `low` is a 32-bit quantity sign-extended, as a Win32 LONG would be.
  int64_t offset = static_cast<int32_t>(low);
  if (high) offset += static_cast<int64_t>(static_cast<uint64_t>(*high) << 32);
  int64_t result = -1;
  if (file_ops().seek(fd_of(h), offset, whence, result) != 0) result = -1;
  if (high) *high = result < 0 ? long(0xFFFFFFFF) : long(uint64_t(result) >> 32);
  return result < 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(result);
}

uint64_t seek_file(HANDLE h, uint64_t offset, unsigned method) {
  const int64_t low = static_cast<int32_t>(static_cast<uint32_t>(offset));
  long high = static_cast<long>((static_cast<int64_t>(offset) - low) >> 32);
  const uint32_t reachedLow = FileSystem::SetFilePointer(h, static_cast<long>(low), &high, method);
  return (uint64_t(uint32_t(high)) << 32) | reachedLow;
}

unsigned FileSystem::SetEndOfFile(HANDLE h) {
  ms_lastError = 0;
  if (h == INVALID_HANDLE_VALUE) {
    ms_lastError = ERROR_INVALID_HANDLE;
    return ERROR_INVALID_HANDLE;
  }
  int64_t position = 0;
  int error = file_ops().seek(fd_of(h), 0, SEEK_CUR, position);
  if (!error) error = file_ops().truncate(fd_of(h), position);
  return error ? fail_with(error) : 0;
}

unsigned FileSystem::GetFileSize(const std::u16string& path, unsigned* size) {
  uint64_t full;
  if (!size || GetFileSize64(path, &full) != 0) return 1;
  *size = static_cast<unsigned>(full);
  return 0;
}

unsigned FileSystem::GetFileSize64(const std::u16string& path, uint64_t* size) {
  struct stat64 st;
  if (!size || file_ops().stat(AT_FDCWD, narrow_lib(path), st, true) != 0) return 1;
  *size = static_cast<uint64_t>(st.st_size);
  return 0;
}

unsigned FileSystem::GetFileTime(HANDLE h, _FILETIME* creation, _FILETIME* access,
                                 _FILETIME* write) {
  ms_lastError = 0;
  struct stat64 st;
  if (h == INVALID_HANDLE_VALUE || file_ops().stat(fd_of(h), std::string(), st, true) != 0) {
    ms_lastError = ERROR_INVALID_HANDLE;
    return ERROR_INVALID_HANDLE;
  }
  if (creation) *creation = TimespecToFileTime(st.st_ctim.tv_sec, st.st_ctim.tv_nsec);
  if (access) *access = TimespecToFileTime(st.st_atim.tv_sec, st.st_atim.tv_nsec);
  if (write) *write = TimespecToFileTime(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
  return 0;
}

unsigned FileSystem::SetFileTime(HANDLE h, const _FILETIME*, const _FILETIME*,
                                 const _FILETIME* write) {
  ms_lastError = 0;
  if (h == INVALID_HANDLE_VALUE) {
    ms_lastError = ERROR_INVALID_HANDLE;
    return ERROR_INVALID_HANDLE;
  }
  if (!write) return fail_from_errno();
  int64_t seconds;
  long nanoseconds;
  FileTimeToTimespec(*write, seconds, nanoseconds);
  struct timespec times[2] = {{static_cast<time_t>(seconds), nanoseconds},
                              {static_cast<time_t>(seconds), nanoseconds}};
  file_ops().setTimes(fd_of(h), std::string(),
                      times);  // a refused stamp is not reported: the copy itself succeeded
  return 0;
}

unsigned FileSystem::CloseHandle(HANDLE h) {
  if (int error = file_ops().close(fd_of(h))) return fail_with(error);
  return 0;
}

unsigned FileSystem::GetLastError() { return ms_lastError; }
