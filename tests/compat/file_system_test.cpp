#include "compat/file_system.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

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

  // Disposition 5 truncates.
  ASSERT_EQ(FileSystem::CreateFile(w(file), GENERIC_WRITE, 0, TRUNCATE_EXISTING, h), 0u);
  FileSystem::CloseHandle(h);
  EXPECT_EQ(read_file(file), "");

  // 1, 3 and 4 never create; a missing file is code 2 and the handle is untouched.
  for (unsigned disposition : {CREATE_NEW, OPEN_EXISTING, OPEN_ALWAYS}) {
    HANDLE untouched = reinterpret_cast<HANDLE>(intptr_t(12345));
    EXPECT_EQ(FileSystem::CreateFile(w(dir / "missing"), GENERIC_WRITE, 0, disposition, untouched),
              ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(untouched, reinterpret_cast<HANDLE>(intptr_t(12345)));
    EXPECT_EQ(FileSystem::GetLastError(), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(exists(dir / "missing"));
  }
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

TEST(FileSystemTest, SizesAndTimes) {
  TempDir dir;
  const std::string file = dir / "t";
  write_file(file, "12345");
  unsigned size = 77;
  EXPECT_EQ(FileSystem::GetFileSize(w(dir / "missing"), &size), 1u);
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(FileSystem::GetFileSize(w(file), &size), 0u);
  EXPECT_EQ(size, 5u);

  // A stamp written is read back equal, to 100 ns, also before 1970 and after 2038.
  const uint64_t stamps[] = {133000000001234567ull, 116444736000000000ull, 100000000000000001ull,
                             140000000000000009ull};
  for (uint64_t stamp : stamps) {
    HANDLE h = INVALID_HANDLE_VALUE;
    ASSERT_EQ(FileSystem::CreateFile(w(file), GENERIC_WRITE, 0, OPEN_EXISTING, h), 0u);
    _FILETIME set = U64ToFileTime(stamp);
    EXPECT_EQ(FileSystem::SetFileTime(h, nullptr, nullptr, &set), 0u);
    FileSystem::CloseHandle(h);
    ASSERT_EQ(FileSystem::CreateFile(w(file), GENERIC_READ, 0, OPEN_EXISTING, h), 0u);
    _FILETIME got, access;
    EXPECT_EQ(FileSystem::GetFileTime(h, nullptr, &access, &got), 0u);
    FileSystem::CloseHandle(h);
    EXPECT_EQ(FileTimeToU64(got), stamp);
    EXPECT_EQ(FileTimeToU64(access), stamp);
  }
}

}  // namespace
