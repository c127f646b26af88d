// Win32-style file interface over POSIX descriptors: handles, byte counts,
// 64-bit positions in two halves, FILETIME stamps and a last-error code.
// Every file operation of the package reader and the installation engine
// goes through this class, so tests can see and steer all of them.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "compat/file_time.h"

using HANDLE = void*;
inline HANDLE const INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));

// A handle is the file descriptor it holds.
inline int fd_of(HANDLE h) { return static_cast<int>(reinterpret_cast<intptr_t>(h)); }
inline HANDLE handle_of(int fd) { return reinterpret_cast<HANDLE>(static_cast<intptr_t>(fd)); }

// Accepted only to tell "given" from "null"; never used for I/O.
struct _OVERLAPPED;

// Access masks, creation dispositions and seek origins.
constexpr unsigned GENERIC_READ = 0x80000000u;
constexpr unsigned GENERIC_WRITE = 0x40000000u;
constexpr unsigned CREATE_NEW = 1;
constexpr unsigned CREATE_ALWAYS = 2;  // O_CREAT without O_TRUNC: old bytes stay until overwritten
constexpr unsigned OPEN_EXISTING = 3;
constexpr unsigned OPEN_ALWAYS = 4;
constexpr unsigned TRUNCATE_EXISTING = 5;
constexpr unsigned FILE_BEGIN = 0;
constexpr unsigned FILE_CURRENT = 1;
constexpr unsigned FILE_END = 2;

// Error codes used across the program (0 = success).
constexpr unsigned ERROR_SUCCESS = 0;
constexpr unsigned ERROR_FILE_NOT_FOUND = 2;
constexpr unsigned ERROR_PATH_NOT_FOUND = 3;
constexpr unsigned ERROR_ACCESS_DENIED = 5;
constexpr unsigned ERROR_INVALID_HANDLE = 6;
constexpr unsigned ERROR_INVALID_DATA = 13;
constexpr unsigned ERROR_INVALID_PARAMETER = 87;
constexpr unsigned ERROR_INVALID_NAME = 123;
constexpr unsigned ERROR_ALREADY_EXISTS = 183;
constexpr unsigned ERROR_CANTWRITE = 1013;
constexpr unsigned ERROR_CANCELLED = 1223;

class FileSystem {
 public:
  // Opens `path`. Write bit -> O_WRONLY (O_RDWR with the read bit too), else
  // O_RDONLY. Disposition 2 adds O_CREAT, 5 adds O_TRUNC, others add nothing
  // (so 1 and 4 do not create). New files get mode 0660 less the umask.
  // `handle` is set only on success. Share mode is ignored.
  static unsigned CreateFile(const std::u16string& path, unsigned access, unsigned share,
                             unsigned creation, HANDLE& handle);
  // Reads until `count` bytes or end of file; an early end is success with a
  // smaller *read. 87 when both `read` and `overlapped` are null.
  static unsigned ReadFile(HANDLE h, void* buffer, unsigned count, unsigned* read,
                           _OVERLAPPED* overlapped);
  // One write(2). A short or failed write shows only in *written != count
  // (-1 when write failed); the result stays 0. 6 for the invalid handle.
  static unsigned WriteFile(HANDLE h, const void* buffer, unsigned count, unsigned* written,
                            _OVERLAPPED* overlapped);
  // Seeks; returns the new position's low 32 bits and, when `high` is given,
  // stores the high 32 bits there. Failure: 0xFFFFFFFF (last error stays 0).
  static uint32_t SetFilePointer(HANDLE h, long low, long* high, unsigned method);
  // Truncates at the current position.
  static unsigned SetEndOfFile(HANDLE h);
  // Size by path, modulo 2^32; 0 on success, 1 on failure (last error untouched).
  static unsigned GetFileSize(const std::u16string& path, unsigned* size);
  // Full 64-bit size by path; 0 on success, 1 on failure.
  static unsigned GetFileSize64(const std::u16string& path, uint64_t* size);
  // Status-change, access and modification times, 100-ns exact.
  static unsigned GetFileTime(HANDLE h, _FILETIME* creation, _FILETIME* access, _FILETIME* write);
  // Sets access and modification time to `write`, 100-ns exact.
  static unsigned SetFileTime(HANDLE h, const _FILETIME* creation, const _FILETIME* access,
                              const _FILETIME* write);
  static unsigned CloseHandle(HANDLE h);
  static unsigned GetLastError();

  // Directories and files through shell commands (paths escaped for the shell).
  // mkdir -p: 0, 2 when it failed, 87 when no shell could be started.
  static unsigned CreateDirectory(const std::u16string& path);
  // CreateDirectory of each path, the commands running side by side; the
  // codes in the order of the paths.
  static std::vector<unsigned> CreateDirectories(const std::vector<std::u16string>& paths);
  // rm -rf; always 0.
  static unsigned RemoveDirectory(const std::u16string& path);
  // mv: 2 when mv exits with 1, 87 without a shell, 0 otherwise.
  static unsigned MoveFile(const std::u16string& source, const std::u16string& destination);
  // rm -f; always 0.
  static unsigned DeleteFile(const std::u16string& path);
  // $TMPDIR when it names a directory, else /tmp; always ends in "/". Always 0.
  static unsigned GetTempPath(std::u16string& path);
  // A new, empty, uniquely named file (prefix: at most 5 characters; an
  // empty prefix gives "file"). The
  // directory is $TMPDIR when usable, else `directory`, else /tmp.
  // 0, or 1013 when the file could not be created. The caller deletes it.
  static unsigned GetTempFileName(const std::u16string& directory, const std::u16string& prefix,
                                  std::u16string& name);
  // Free bytes of the temporary directory, modulo 2^32 (for old callers).
  static unsigned GetFreeSpaceTmpDir(unsigned* bytes);
  // Free bytes of the temporary directory, full width. 87 for a null pointer.
  static unsigned GetFreeSpaceTmpDir64(uint64_t* bytes);

  static std::atomic<unsigned> ms_lastError;
};

// Maps errno: ENOENT -> 2, anything else -> 87; stores and returns the code.
unsigned setLastErrorByErrNo(int error);

// Moves the file pointer of `h` to the 64-bit `offset` from `method` through
// SetFilePointer's two halves (the low half is read sign-extended, so the
// high half makes up for a low half with its top bit set) and returns where
// the pointer stands then: all ones when the seek failed.
uint64_t seek_file(HANDLE h, uint64_t offset, unsigned method);

void Sleep(int milliseconds);
