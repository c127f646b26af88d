#include "compat/file_system.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include "compat/file_ops.h"
#include "compat/text.h"
#include "support/test_support.h"

using namespace testsupport;

namespace {

std::u16string w(const std::string& s) { return widen_lib(s); }

TEST(FileSystemTest, CreateFileAccessAndDisposition) {
  TempDir dir;
  const std::string file = dir / "f.bin";
  write_file(file, std::string(100, 'a'));

  // Disposition 2 keeps old contents: a 10-byte write leaves a 100-byte file.
  HANDLE h = INVALID_HANDLE_VALUE;
  ASSERT_EQ(FileSystem::CreateFile(w(file), GENERIC_WRITE, 0, CREATE_ALWAYS, h), 0u);
  unsigned written = 0;
  EXPECT_EQ(FileSystem::WriteFile(h, "0123456789", 10, &written, nullptr), 0u);
  EXPECT_EQ(written, 10u);
  FileSystem::CloseHandle(h);
  EXPECT_EQ(read_file(file), "0123456789" + std::string(90, 'a'));

  // Opening a missing file is code 2, and the handle is untouched.
  HANDLE untouched = reinterpret_cast<HANDLE>(intptr_t(12345));
  EXPECT_EQ(FileSystem::CreateFile(w(dir / "missing"), GENERIC_READ, 0, OPEN_EXISTING, untouched),
            ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(untouched, reinterpret_cast<HANDLE>(intptr_t(12345)));
  EXPECT_EQ(FileSystem::GetLastError(), ERROR_FILE_NOT_FOUND);
  // A parent that is a regular file: ENOTDIR -> 87.
  EXPECT_EQ(FileSystem::CreateFile(w(file + "/x"), GENERIC_READ, 0, OPEN_EXISTING, h),
            ERROR_INVALID_PARAMETER);
  // Disposition 2 creates a missing file.
  ASSERT_EQ(FileSystem::CreateFile(w(dir / "new"), GENERIC_WRITE, 0, CREATE_ALWAYS, h), 0u);
  FileSystem::CloseHandle(h);
  EXPECT_TRUE(exists(dir / "new"));
}

TEST(FileSystemTest, ReadWriteAndSeek) {
  TempDir dir;
  const std::string file = dir / "four";
  write_file(file, "abcd");
  HANDLE h = INVALID_HANDLE_VALUE;
  ASSERT_EQ(FileSystem::CreateFile(w(file), GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING, h), 0u);

  char buf[10] = {};
  unsigned n = 99;
  EXPECT_EQ(FileSystem::ReadFile(h, buf, 10, &n, nullptr), 0u);  // early end is success
  EXPECT_EQ(n, 4u);
  EXPECT_EQ(FileSystem::ReadFile(h, buf, 10, &n, nullptr), 0u);
  EXPECT_EQ(n, 0u);

  EXPECT_EQ(FileSystem::SetFilePointer(h, 0, nullptr, FILE_END), 4u);
  EXPECT_EQ(FileSystem::SetFilePointer(h, 1, nullptr, FILE_BEGIN), 1u);
  EXPECT_EQ(FileSystem::SetFilePointer(h, 1, nullptr, FILE_CURRENT), 2u);

  // A high part of 1 seeks to 4 GiB (a sparse position, nothing written).
  long high = 1;
  EXPECT_EQ(FileSystem::SetFilePointer(h, 0, &high, FILE_BEGIN), 0u);
  EXPECT_EQ(high, 1);
  high = 0;
  EXPECT_EQ(FileSystem::SetFilePointer(h, 0, &high, FILE_CURRENT), 0u);
  EXPECT_EQ(high, 1);
  // A failed seek answers all ones and leaves the last error at 0.
  EXPECT_EQ(FileSystem::SetFilePointer(h, -100, nullptr, FILE_BEGIN), 0xFFFFFFFFu);
  EXPECT_EQ(FileSystem::GetLastError(), 0u);
  FileSystem::CloseHandle(h);

  unsigned written = 0;
  // A failed write shows only in the count (-1), never in the result.
  ASSERT_EQ(FileSystem::CreateFile(w(file), GENERIC_READ, 0, OPEN_EXISTING, h), 0u);
  EXPECT_EQ(FileSystem::WriteFile(h, "abc", 3, &written, nullptr), 0u);
  EXPECT_EQ(written, 0xFFFFFFFFu);
  FileSystem::CloseHandle(h);
}

}  // namespace

// A lock kept open in commands stays held while a command (here one left in
// the background) still runs, after the program's own descriptor is closed.
TEST(FileSystemTest, CommandsKeepALockOpenWhenAsked) {
  TempDir dir;
  int fd = -1, status = 0;
  ASSERT_EQ(file_ops().open(AT_FDCWD, dir / "run.lock", O_RDWR | O_CREAT, 0600, fd), 0);
  ASSERT_EQ(file_ops().lock(fd, LOCK_EX), 0);
  keep_open_in_commands(fd);
  ASSERT_EQ(file_ops().run("sleep 2 >/dev/null 2>&1 &", status), 0);
  stop_keeping_open_in_commands(fd);
  file_ops().close(fd);
  ASSERT_EQ(file_ops().open(AT_FDCWD, dir / "run.lock", O_RDWR, 0, fd), 0);
  EXPECT_EQ(file_ops().lock(fd, LOCK_EX), EWOULDBLOCK);
  file_ops().close(fd);
}
