// The copy run: what lands in the target, the time rule, and that every kind
// of failure or a cancel leaves the sandbox exactly as it was.
#include "install/installer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "compat/shell.h"
#include "package_fixture.h"

using namespace installtest;

namespace {

// A small low half, so that a few ticks older or newer flip the low half's
// order against the whole value's.
const _FILETIME kPackageTime = U64ToFileTime((uint64_t(31000000) << 32) | 10);

uint64_t mtime_of(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return 0;
  return FileTimeToU64(TimespecToFileTime(st.st_mtim.tv_sec, st.st_mtim.tv_nsec));
}

std::string pattern_bytes(size_t size, unsigned seed) {
  std::string s(size, '\0');
  for (size_t i = 0; i < size; ++i) s[i] = char((i * 7 + seed + i / 4093) % 251);
  return s;
}

TEST(InstallerTest, FreshInstallCopiesEveryFileWithItsTime) {
  const std::vector<PackageFile> files = {
      {"top.txt", "hello", file_time(1600000000, 123456700)},
      {"a\\b\\c.txt", "nested by backslashes", file_time(1600000001, 100)},
      {"a\\b\\empty.dat", "", file_time(1600000002, 200)},
      {"a/big.bin", pattern_bytes(2 * 1048576 + 1048576 / 2 + 13, 1), file_time(1600000003)},
      {"exact.bin", pattern_bytes(1048576, 2), kPackageTime},  // one copy buffer
      {"far.bin", "beyond 4 GiB", kPackageTime},               // moved there below
  };
  // The existing target given without a final "/", and one yet to be made.
  for (const std::string sub : {"", "/new/deeper/"}) {
    SCOPED_TRACE(sub);
    Sandbox box;
    PackageReader reader;
    box.buildPackage(reader, files);
    // An offset past 4 GiB whose low half has its top bit set (sparse file).
    const int fd = open(box.work().c_str(), O_WRONLY);
    reader.files.back().offset = 0x180000010ull;
    ASSERT_EQ(pwrite(fd, "beyond 4 GiB", 12, off_t(reader.files.back().offset)), 12);
    close(fd);
    StateLog log;
    ASSERT_EQ(run_install(reader, w(box.target() + sub), log), 0u);
    const std::string dir = box.target() + (sub.empty() ? "/" : sub);
    ASSERT_EQ(log.states.size(), files.size() + 1);
    for (size_t i = 0; i < files.size(); ++i) {
      std::string path = dir + files[i].name;
      std::replace(path.begin(), path.end(), '\\', '/');
      EXPECT_TRUE(exists(path) && read_file(path) == files[i].bytes) << path;
      EXPECT_EQ(mtime_of(path), FileTimeToU64(files[i].time)) << path;
      EXPECT_EQ(log.states[i].state, 0u);  // each path as it is reached
      EXPECT_EQ(log.states[i].path, w(path));
      EXPECT_EQ(log.states[i].percent, int(i * 100 / files.size()));
    }
    EXPECT_TRUE(snapshot(box.tmp()).empty());
  }
}

TEST(InstallerTest, ReplacesOnlyStrictlyOlderFilesAndAnUpToDateRerunWritesNothing) {
  const struct {
    const char* name;
    int64_t offset;  // installed time minus package time, in 100-ns ticks
    bool replaced;
  } cases[] = {
      {"older_by_one_tick", -1, true},
      {"equal", 0, false},
      {"newer_by_one_tick", 1, false},
      {"older_with_larger_low_half", -20, true},
      {"newer_with_smaller_low_half", (int64_t(1) << 32) - 5, false},
  };
  Sandbox box;
  std::vector<PackageFile> files;
  for (const auto& c : cases) {
    write_file(box.target() + "/" + c.name, "installed");
    set_file_time(box.target() + "/" + c.name, plus(kPackageTime, c.offset));
    files.push_back({c.name, "from package", kPackageTime});
  }
  PackageReader reader;
  box.buildPackage(reader, files);
  StateLog log;
  ASSERT_EQ(run_install(reader, box.targetDir(), log), 0u);
  for (const auto& c : cases)
    EXPECT_EQ(read_file(box.target() + "/" + c.name), c.replaced ? "from package" : "installed")
        << c.name;

  // Now every file is up to date: nothing is written and no command runs for
  // the skipped files, but each path is still reported.
  const Snapshot installed = snapshot(box.target());
  const unsigned long commands = shell_command_count();
  StateLog again;
  ASSERT_EQ(run_install(reader, box.targetDir(), again), 0u);
  EXPECT_LE(shell_command_count() - commands, 2u);  // the backup directory, made and removed
  EXPECT_EQ(snapshot_difference(installed, snapshot(box.target())), "");
  EXPECT_EQ(again.states.size(), files.size() + 1);
  EXPECT_TRUE(snapshot(box.tmp()).empty());
}

// Runs `body` in a child process with a file size limit, so that a write
// stops part-way (seen only in WriteFile's count); the child's failed checks
// fail the test.
void run_in_child(rlim_t limit, const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const struct rlimit r = {limit, limit};
    setrlimit(RLIMIT_FSIZE, &r);
    body();
    fflush(stdout);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  ASSERT_GT(child, 0);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "checks failed in the child";
}

TEST(InstallerTest, EveryFailureAndCancelLeavesTheSandboxAsItWas) {
  const int kFailing = 8;  // the entry under test, after the scenario below
  const std::string longName(300, 'x');
  const struct {
    const char* name;
    std::string failing;  // the entry's name; its contents are 3 MiB
    unsigned code;
    uint64_t offset;  // the entry's place in the working file, when not 0
    uint32_t size;    // its size, when not 0
    int cancelAt;     // the entry being handled when Cancel is pressed
    bool sizeLimit;   // run in a child whose file size limit stops a write part-way
  } cases[] = {
      {"nothing_fails", "ok.txt", 0, 0, 0, -1, false},
      {"directory_where_the_file_goes", "taken", ERROR_ALREADY_EXISTS, 0, 0, -1, false},
      {"directory_cannot_be_made", "plain\\a", ERROR_PATH_NOT_FOUND, 0, 0, -1, false},
      {"file_cannot_be_created", longName, ERROR_INVALID_PARAMETER, 0, 0, -1, false},
      {"working_file_too_short", "s.bin", ERROR_INVALID_DATA, 0, 0xffffffff, -1, false},
      {"seek_beyond_any_size", "f.bin", ERROR_INVALID_PARAMETER, 1ull << 62, 0, -1, false},
      {"partial_write", "huge.bin", ERROR_CANTWRITE, 0, 0, -1, true},
      {"cancel_after_a_replaced_file", "ok.txt", ERROR_CANCELLED, 0, 0, 1, false},
      {"cancel_at_the_last_file", "ok.txt", ERROR_CANCELLED, 0, 0, kFailing + 1, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Sandbox box;
    // In the target: a directory and a plain file that some failing entries
    // run into. Before the failing entry: an up-to-date file, an old and a
    // new file each given twice (the saved original must survive the second
    // copy), new files in old and new directories, a new directory in an old one.
    const std::string t = box.target() + "/";
    for (const char* dir : {"keep", "taken"}) ASSERT_EQ(mkdir((t + dir).c_str(), 0755), 0);
    for (const char* f : {"same.txt", "replaced.txt", "keep/own.txt", "taken/in", "plain"})
      write_file(t + f, "old");
    set_file_time(t + "same.txt", kPackageTime);
    set_file_time(t + "replaced.txt", file_time(1500000000, 100));
    const std::vector<PackageFile> files = {
        {"same.txt", "same", kPackageTime},
        {"replaced.txt", "new replaced, longer", kPackageTime},
        {"keep\\new.txt", "new in keep", kPackageTime},
        {"keep\\new.txt", "new again", plus(kPackageTime, 1)},
        {"fresh\\deep\\n.txt", "fresh", kPackageTime},
        {"keep\\inner\\x.txt", "inner", kPackageTime},
        {"replaced.txt", "again", plus(kPackageTime, 1)},
        {"big.bin", pattern_bytes(1048576 + 4096, 4), kPackageTime},
        {c.failing, pattern_bytes(3 * 1048576, 5), kPackageTime},
        {"after.txt", "after", kPackageTime},
    };
    PackageReader reader;
    box.buildPackage(reader, files);
    if (c.offset) reader.files[kFailing].offset = c.offset;
    if (c.size) reader.files[kFailing].size = c.size;
    const Snapshot before = box.world();

    auto run = [&] {
      StateLog log;
      bool restoredWhenReported = false;
      log.onState = [&](const StateLog::State& s) {
        if (s.state == 0 && int(log.states.size()) == c.cancelAt + 1) log.data->setCancel(true);
        if (s.state == ERROR_CANCELLED) restoredWhenReported = box.world() == before;
      };
      EXPECT_EQ(run_install(reader, box.targetDir(), log), c.code);
      // Progress up to the entry where the run stopped, then the outcome;
      // a cancel is reported once the rollback is complete.
      const size_t stop =
          c.code == 0 ? files.size() - 1 : size_t(c.cancelAt >= 0 ? c.cancelAt : kFailing);
      ASSERT_EQ(log.states.size(), stop + 2);
      EXPECT_EQ(log.states.back().state, c.code);
      EXPECT_EQ(log.states.back().percent, c.code ? int(stop * 100 / files.size()) : 100);
      EXPECT_EQ(log.states.back().phase, c.code == 0       ? RunPhase::kFinished
                                         : c.cancelAt >= 0 ? RunPhase::kCancelled
                                                           : RunPhase::kFailed);
      EXPECT_EQ(restoredWhenReported, c.cancelAt >= 0);
    };
    if (c.sizeLimit)
      run_in_child(2 * 1048576 + 1048576 / 2, run);
    else
      run();
    EXPECT_TRUE(snapshot(box.tmp()).empty());
    if (c.code != 0) {
      EXPECT_EQ(snapshot_difference(before, box.world()), "");
    } else {
      EXPECT_EQ(read_file(t + "same.txt"), "old");
      EXPECT_EQ(read_file(t + "replaced.txt"), "again");
      EXPECT_EQ(read_file(t + "keep/new.txt"), "new again");
    }
  }
}

// A rollback spends shell commands per directory, never per file: many
// files in few new directories, cancelled at the last one.
TEST(InstallerTest, RollbackCommandsGrowWithDirectoriesNotFiles) {
  const char* dirs[] = {"d0\\x\\y", "d0", "d0\\x", "d1", "d2", "d3", "d4\\z"};
  const size_t kDirectories = 8, kFiles = 160;
  std::vector<PackageFile> files;
  for (size_t i = 0; i < kFiles; ++i)
    files.push_back({std::string(dirs[i % 7]) + "\\f" + std::to_string(i), "x", kPackageTime});
  Sandbox box;
  PackageReader reader;
  box.buildPackage(reader, files);
  StateLog log;
  log.onState = [&](const StateLog::State&) {
    if (log.states.size() == kFiles) log.data->setCancel(true);
  };
  const unsigned long before = shell_command_count();
  EXPECT_EQ(run_install(reader, box.targetDir(), log), ERROR_CANCELLED);
  // One mkdir per directory, the backup made and removed, and at most one
  // rm -rf per directory.
  EXPECT_LE(shell_command_count() - before, 2 * kDirectories + 2);
  EXPECT_TRUE(snapshot(box.target()).empty());
}

}  // namespace
