// The copy run: what lands in the target, the time rule, and that every kind
// of failure or a cancel leaves the sandbox exactly as it was.
#include "install/installer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "app/resources.h"
#include "compat/shell.h"
#include "compat/text.h"
#include "package_fixture.h"

using namespace testsupport;
using namespace installtest;

namespace {

std::u16string w(const std::string& s) { return widen_lib(s); }

// A package time whose low half is small, so that "older" and "newer" by a
// few ticks flip the low half's order against the whole value's order.
const _FILETIME kPackageTime = U64ToFileTime((uint64_t(31000000) << 32) | 10);
const _FILETIME kOldTime = file_time(1500000000, 100);

_FILETIME plus(const _FILETIME& t, int64_t ticks) {
  return U64ToFileTime(FileTimeToU64(t) + uint64_t(ticks));
}

uint64_t mtime_of(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return 0;
  return FileTimeToU64(TimespecToFileTime(st.st_mtim.tv_sec, st.st_mtim.tv_nsec));
}

std::string pattern_bytes(size_t size, unsigned seed) {
  std::string s(size, '\0');
  for (size_t i = 0; i < size; ++i) s[i] = static_cast<char>((i * 7 + seed + i / 4093) % 251);
  return s;
}

// One run of a fresh Installer on `reader` into `dir` (no finishing pause).
unsigned run_install(PackageReader& reader, const std::u16string& dir, StateLog& log) {
  InstallProcessData data;
  log.attach(data);
  data.init(&reader, dir);
  Installer installer(0);
  return installer.run(&data);
}

TEST(InstallerTest, FreshInstallCopiesEveryFileWithItsTime) {
  const std::vector<PackageFile> files = {
      {"top.txt", "hello", file_time(1600000000, 123456700)},
      {"a\\b\\c.txt", "nested by backslashes", file_time(1600000001, 100)},
      {"a\\b\\empty.dat", "", file_time(1600000002, 200)},
      {"a/big.bin", pattern_bytes(2 * 1048576 + 1048576 / 2 + 13, 1), file_time(1600000003)},
      {"exact.bin", pattern_bytes(1048576, 2), file_time(1600000004, 9999900)},
      {"d\\e/f\\g.txt", "mixed separators", kPackageTime},
  };
  // Into the existing empty target, and into a target that does not exist yet.
  for (const std::string sub : {"", "new/deeper/"}) {
    SCOPED_TRACE(sub);
    Sandbox box;
    PackageReader reader;
    box.buildPackage(reader, files);
    const std::string dir = box.target() + "/" + sub;
    StateLog log;
    ASSERT_EQ(run_install(reader, w(dir), log), 0u);

    for (const PackageFile& f : files) {
      std::u16string name = w(f.name);
      replace_all(name, u"\\", u"/");
      const std::string path = dir + narrow_lib(name);
      ASSERT_TRUE(exists(path)) << path;
      EXPECT_TRUE(read_file(path) == f.bytes) << path;
      EXPECT_EQ(mtime_of(path), FileTimeToU64(f.time)) << path;
    }
    // Each path as it is reached, then the finishing text at 100.
    ASSERT_EQ(log.states.size(), files.size() + 1);
    for (size_t i = 0; i < files.size(); ++i) {
      std::u16string name = w(files[i].name);
      replace_all(name, u"\\", u"/");
      EXPECT_EQ(log.states[i].state, 0u);
      EXPECT_EQ(log.states[i].message, w(dir) + name);
      EXPECT_EQ(log.states[i].percent, int(i * 100 / files.size()));
    }
    EXPECT_EQ(log.states.back().state, 0u);
    EXPECT_EQ(log.states.back().message, LoadResString("IDS_INSTALL_FINISH"));
    EXPECT_FALSE(log.states.back().message.empty());
    EXPECT_EQ(log.states.back().percent, 100);
    EXPECT_TRUE(box.backups().empty());
  }
}

TEST(InstallerTest, UpToDateReinstallSkipsEverythingAndWritesNothing) {
  Sandbox box;
  const std::vector<PackageFile> files = {{"x.txt", "x", kPackageTime},
                                          {"s\\y.txt", "y", file_time(1600000000, 700)},
                                          {"s\\t\\z.bin", pattern_bytes(3000, 3), kPackageTime}};
  {
    PackageReader reader;
    box.buildPackage(reader, files);
    StateLog log;
    ASSERT_EQ(run_install(reader, box.targetDir(), log), 0u);
  }
  const Snapshot before = snapshot(box.target());
  std::map<std::string, std::pair<ino_t, int64_t>> identity;  // inode and change time
  for (const auto& [rel, kind] : snapshot(box.target())) {
    struct stat st;
    ASSERT_EQ(stat((box.target() + "/" + rel).c_str(), &st), 0);
    identity[rel] = {st.st_ino, int64_t(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec};
  }
  // Let the clock move on, so that any rewrite would show in the change time.
  std::this_thread::sleep_for(std::chrono::milliseconds(30));

  PackageReader reader;
  box.buildPackage(reader, files);
  StateLog log;
  const unsigned long commands = shell_command_count();
  ASSERT_EQ(run_install(reader, box.targetDir(), log), 0u);
  EXPECT_LE(shell_command_count() - commands, 2u);  // the backup directory, made and removed

  EXPECT_EQ(snapshot_difference(before, snapshot(box.target())), "");
  EXPECT_TRUE(box.backups().empty());
  for (const auto& [rel, id] : identity) {
    struct stat st;
    ASSERT_EQ(stat((box.target() + "/" + rel).c_str(), &st), 0);
    EXPECT_EQ(st.st_ino, id.first) << rel;
    EXPECT_EQ(int64_t(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec, id.second) << rel;
  }
  ASSERT_EQ(log.states.size(), files.size() + 1);  // skipped paths are reported too
  EXPECT_EQ(log.states[1].message, box.targetDir() + u"s/y.txt");
  EXPECT_EQ(log.states.back().percent, 100);
}

TEST(InstallerTest, ReplacesOnlyStrictlyOlderFiles) {
  struct Case {
    const char* name;
    bool exists;
    int64_t offset;  // installed time minus package time, in 100-ns ticks
    bool replaced;
  };
  const Case cases[] = {
      {"older_by_one_tick", true, -1, true},
      {"equal", true, 0, false},
      {"newer_by_one_tick", true, 1, false},
      {"older_with_larger_low_half", true, -20, true},
      {"newer_with_smaller_low_half", true, (int64_t(1) << 32) - 5, false},
      {"missing", false, 0, true},
  };
  Sandbox box;
  std::vector<PackageFile> files;
  for (const Case& c : cases) {
    const std::string path = box.target() + "/" + c.name;
    if (c.exists) {
      write_file(path, "installed");
      set_file_time(path, plus(kPackageTime, c.offset));
    }
    EXPECT_EQ(Installer::compareFiles(w(path), kPackageTime), c.replaced) << c.name;
    files.push_back({c.name, "from package", kPackageTime});
  }
  PackageReader reader;
  box.buildPackage(reader, files);
  StateLog log;
  ASSERT_EQ(run_install(reader, box.targetDir(), log), 0u);
  for (const Case& c : cases) {
    const std::string path = box.target() + "/" + c.name;
    EXPECT_EQ(read_file(path), c.replaced ? "from package" : "installed") << c.name;
    EXPECT_EQ(mtime_of(path), FileTimeToU64(plus(kPackageTime, c.replaced ? 0 : c.offset)))
        << c.name;
  }
  EXPECT_TRUE(box.backups().empty());
}

// Contents far beyond 4 GiB, and at offsets whose low half has its top bit
// set, in a sparse working file.
TEST(InstallerTest, ReadsContentsAtSixtyFourBitOffsets) {
  Sandbox box;
  PackageReader reader;
  box.buildPackage(reader, {{"low.bin", "", kPackageTime},
                            {"high.bin", "", kPackageTime},
                            {"two_gib.bin", "", kPackageTime}});
  const uint64_t offsets[] = {0x10, 0x180000010ull, 0x80000000ull};
  const std::string contents[] = {"near the start", "beyond six gigabytes", "at two gigabytes"};
  int fd = open((box.root() + "/work/package.work").c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  for (size_t i = 0; i < 3; ++i) {
    ASSERT_EQ(pwrite(fd, contents[i].data(), contents[i].size(), off_t(offsets[i])),
              ssize_t(contents[i].size()));
    reader.files[i].offset = offsets[i];
    reader.files[i].size = uint32_t(contents[i].size());
  }
  close(fd);
  StateLog log;
  ASSERT_EQ(run_install(reader, box.targetDir(), log), 0u);
  EXPECT_EQ(read_file(box.target() + "/low.bin"), contents[0]);
  EXPECT_EQ(read_file(box.target() + "/high.bin"), contents[1]);
  EXPECT_EQ(read_file(box.target() + "/two_gib.bin"), contents[2]);
}

// The target before a failing run, and the package entries that succeed
// before the failing one: replaced files, new files in old and new
// directories, a new directory inside an old one, and names given twice.
struct Scenario {
  std::vector<PackageFile> files;
  size_t failingIndex = 0;
};

Scenario prepare_scenario(const Sandbox& box, const PackageFile& failing) {
  const std::string t = box.target() + "/";
  mkdir((t + "keep").c_str(), 0755);
  mkdir((t + "user").c_str(), 0755);
  write_file(t + "replaced.txt", "old replaced");
  write_file(t + "dup.txt", "old dup");
  write_file(t + "keep/own.txt", "mine");
  write_file(t + "keep/.hidden", "hidden");
  write_file(t + "user/notes.txt", "notes");
  for (const char* f : {"replaced.txt", "dup.txt", "keep/own.txt", "keep/.hidden"})
    set_file_time(t + f, kOldTime);
  set_mtime(t + "user/notes.txt", 1400000000, 987654321);

  Scenario s;
  s.files = {
      {"replaced.txt", "new replaced", kPackageTime},
      {"keep\\new.txt", "new in keep", kPackageTime},
      {"fresh\\deep\\n.txt", "fresh", kPackageTime},
      {"keep\\inner\\x.txt", "inner", kPackageTime},
      {"dup.txt", "dup v1, longer than v2", kPackageTime},
      {"dup.txt", "dup v2", plus(kPackageTime, 1)},
      {"newdup.txt", "nd v1", kPackageTime},
      {"newdup.txt", "nd v2", plus(kPackageTime, 1)},
      {"big.bin", pattern_bytes(1048576 + 4096, 4), kPackageTime},
  };
  s.failingIndex = s.files.size();
  s.files.push_back(failing);
  s.files.push_back({"after.txt", "after", kPackageTime});
  return s;
}

TEST(InstallerTest, EveryFailureLeavesTheSandboxAsItWas) {
  const std::string longName(300, 'x');
  struct Case {
    const char* name;
    PackageFile failing;
    unsigned code;
    std::function<void(Sandbox&)> setup;                            // before the run
    std::function<void(Sandbox&, PackageReader&, size_t)> tweak;    // the failing entry's data
    std::function<void(Sandbox&, const StateLog::State&)> onState;  // during the run
  };
  const Case cases[] = {
      {"nothing_fails", {"ok.txt", "ok", kPackageTime}, 0, nullptr, nullptr, nullptr},
      {"directory_where_the_file_goes",
       {"blocked.txt", "b", kPackageTime},
       ERROR_ALREADY_EXISTS,
       [](Sandbox& b) {
         mkdir((b.target() + "/blocked.txt").c_str(), 0755);
         write_file(b.target() + "/blocked.txt/inside", "kept");
       },
       nullptr,
       nullptr},
      {"directory_name_taken_by_a_file",
       {"conf\\a.txt", "a", kPackageTime},
       ERROR_PATH_NOT_FOUND,
       [](Sandbox& b) { write_file(b.target() + "/conf", "a plain file"); },
       nullptr,
       nullptr},
      {"parent_is_a_link_to_a_missing_place",
       {"link\\a.txt", "a", kPackageTime},
       ERROR_PATH_NOT_FOUND,
       [](Sandbox& b) {
         ASSERT_EQ(symlink((b.root() + "/outside/missing").c_str(), (b.target() + "/link").c_str()),
                   0);
       },
       nullptr,
       nullptr},
      {"new_directory_with_an_impossible_name",
       {"newdir\\" + longName + "\\f.txt", "f", kPackageTime},
       ERROR_PATH_NOT_FOUND,
       nullptr,
       nullptr,
       nullptr},
      {"file_cannot_be_created",
       {longName + ".txt", "f", kPackageTime},
       ERROR_INVALID_PARAMETER,
       nullptr,
       nullptr,
       nullptr},
      {"working_file_shorter_than_the_entry",
       {"short.bin", "0123456789", kPackageTime},
       ERROR_INVALID_DATA,
       nullptr,
       [](Sandbox& b, PackageReader& r, size_t i) {
         struct stat st;
         ASSERT_EQ(stat((b.root() + "/work/package.work").c_str(), &st), 0);
         r.files[i].offset = uint64_t(st.st_size) - 3;  // 3 bytes left, 100 owed
         r.files[i].size = 100;
       },
       nullptr},
      {"seek_beyond_any_file_size",
       {"far.bin", "f", kPackageTime},
       ERROR_INVALID_PARAMETER,
       nullptr,
       [](Sandbox&, PackageReader& r, size_t i) { r.files[i].offset = uint64_t(1) << 62; },
       nullptr},
      {"old_file_cannot_be_moved_aside",
       {"sub\\old.txt", "new", kPackageTime},
       ERROR_CANTWRITE,
       [](Sandbox& b) {
         mkdir((b.target() + "/sub").c_str(), 0755);
         write_file(b.target() + "/sub/old.txt", "must survive");
         set_file_time(b.target() + "/sub/old.txt", kOldTime);
       },
       nullptr,
       // Just before the entry is handled, a file takes the place that its
       // backup directory needs.
       [](Sandbox& b, const StateLog::State& s) {
         if (s.message == b.targetDir() + u"sub/old.txt") write_file(b.tmp() + "/zqstp0/sub", "");
       }},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Sandbox box;
    Scenario s = prepare_scenario(box, c.failing);
    if (c.setup) c.setup(box);
    PackageReader reader;
    box.buildPackage(reader, s.files);
    if (c.tweak) c.tweak(box, reader, s.failingIndex);
    const Snapshot before = snapshot(box.root());

    StateLog log;
    if (c.onState) log.onState = [&](const StateLog::State& st) { c.onState(box, st); };
    EXPECT_EQ(run_install(reader, box.targetDir(), log), c.code);
    EXPECT_TRUE(box.backups().empty());
    ASSERT_FALSE(log.states.empty());
    const StateLog::State& last = log.states.back();

    if (c.code == 0) {  // the scenario itself installs cleanly
      const std::string t = box.target() + "/";
      EXPECT_EQ(read_file(t + "replaced.txt"), "new replaced");
      EXPECT_EQ(read_file(t + "dup.txt"), "dup v2");
      EXPECT_EQ(read_file(t + "newdup.txt"), "nd v2");
      EXPECT_EQ(read_file(t + "keep/inner/x.txt"), "inner");
      EXPECT_EQ(read_file(t + "keep/own.txt"), "mine");
      EXPECT_EQ(last.percent, 100);
      continue;
    }
    EXPECT_EQ(snapshot_difference(before, snapshot(box.root())), "");
    EXPECT_EQ(last.state, c.code);
    EXPECT_EQ(last.message, LoadResString("IDS_INSTALL_ERROR"));
    EXPECT_EQ(last.percent, int(s.failingIndex * 100 / s.files.size()));
  }
}

// A write that stops part-way (the file size limit of a child process):
// WriteFile reports it only through the count.
TEST(InstallerTest, PartialWriteIsAnErrorAndRollsBack) {
  Sandbox box;
  Scenario s = prepare_scenario(box, {"huge.bin", pattern_bytes(3 * 1048576, 5), kPackageTime});
  PackageReader reader;
  box.buildPackage(reader, s.files);
  const Snapshot before = snapshot(box.root());

  int pipefd[2];
  ASSERT_EQ(pipe(pipefd), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(pipefd[0]);
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {2 * 1048576 + 1048576 / 2, 2 * 1048576 + 1048576 / 2};
    setrlimit(RLIMIT_FSIZE, &limit);
    StateLog log;
    unsigned result[2] = {run_install(reader, box.targetDir(), log), 0};
    result[1] = log.states.empty() ? 0 : log.states.back().state;
    ssize_t ignored = write(pipefd[1], result, sizeof result);
    (void)ignored;
    _exit(0);
  }
  close(pipefd[1]);
  unsigned result[2] = {0, 0};
  ASSERT_EQ(read(pipefd[0], result, sizeof result), ssize_t(sizeof result));
  close(pipefd[0]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(result[0], ERROR_CANTWRITE);
  EXPECT_EQ(result[1], ERROR_CANTWRITE);
  EXPECT_EQ(snapshot_difference(before, snapshot(box.root())), "");
  EXPECT_TRUE(box.backups().empty());
}

TEST(InstallerTest, CancelRollsBackThenReportsTheCancel) {
  struct Case {
    const char* name;
    size_t cancelAt;     // the entry being handled when Cancel is pressed
    bool upToDateFirst;  // entry 0 is already installed and gets skipped
  };
  const Case cases[] = {{"after_the_first_file", 0, false},
                        {"after_the_third_file", 2, false},
                        {"after_the_last_file", 10, false},
                        {"after_a_skipped_file", 0, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Sandbox box;
    Scenario s = prepare_scenario(box, {"ok.txt", "ok", kPackageTime});
    if (c.upToDateFirst) set_file_time(box.target() + "/replaced.txt", kPackageTime);
    PackageReader reader;
    box.buildPackage(reader, s.files);
    const Snapshot before = snapshot(box.root());

    InstallProcessData data;
    StateLog log;
    bool restoredWhenReported = false;
    log.onState = [&](const StateLog::State& st) {
      if (st.state == 0 && log.states.size() == c.cancelAt + 1) data.setCancel(true);
      if (st.state == ERROR_CANCELLED) restoredWhenReported = snapshot(box.root()) == before;
    };
    log.attach(data);
    data.init(&reader, box.targetDir());
    Installer installer(0);
    EXPECT_EQ(installer.run(&data), ERROR_CANCELLED);

    EXPECT_EQ(snapshot_difference(before, snapshot(box.root())), "");
    EXPECT_TRUE(restoredWhenReported);
    EXPECT_TRUE(box.backups().empty());
    // Progress states only, then the cancel: no error is reported on the way.
    ASSERT_EQ(log.states.size(), c.cancelAt + 2);
    for (size_t i = 0; i + 1 < log.states.size(); ++i) EXPECT_EQ(log.states[i].state, 0u);
    EXPECT_EQ(log.states.back().message, LoadResString("IDS_CANCEL_FINISH"));
    EXPECT_FALSE(log.states.back().message.empty());
    EXPECT_EQ(log.states.back().percent, int(c.cancelAt * 100 / s.files.size()));
  }
}

// Shell commands are spent per directory, never per file: a fresh install of
// F files in D new directories, and the rollback of it, both stay O(D).
TEST(InstallerTest, CommandsGrowWithDirectoriesNotFiles) {
  const char* dirs[] = {"d0\\x\\y", "d0", "d0\\x", "d1", "d2", "d3", "d4\\z"};
  const size_t kDirectories = 8;  // d0, d0/x, d0/x/y, d1, d2, d3, d4, d4/z
  const size_t kFiles = 160;
  std::vector<PackageFile> files;
  for (size_t i = 0; i < kFiles; ++i)
    files.push_back({std::string(dirs[i % 7]) + "\\f" + std::to_string(i) + ".txt",
                     std::to_string(i), kPackageTime});

  for (bool cancel : {false, true}) {
    SCOPED_TRACE(cancel ? "cancelled at the last file" : "installed");
    Sandbox box;
    PackageReader reader;
    box.buildPackage(reader, files);
    InstallProcessData data;
    StateLog log;
    log.onState = [&](const StateLog::State&) {
      if (cancel && log.states.size() == kFiles) data.setCancel(true);
    };
    log.attach(data);
    data.init(&reader, box.targetDir());
    const unsigned long before = shell_command_count();
    Installer installer(0);
    EXPECT_EQ(installer.run(&data), cancel ? ERROR_CANCELLED : 0u);
    const unsigned long commands = shell_command_count() - before;
    std::cout << (cancel ? "install + rollback: " : "install: ") << commands << " commands for "
              << kFiles << " files in " << kDirectories << " directories\n";
    if (cancel) {
      EXPECT_TRUE(snapshot(box.target()).empty());
      // backup made and removed, one mkdir per directory, one rm -rf per top directory
      EXPECT_LE(commands, 2 * kDirectories + 2);
    } else {
      EXPECT_EQ(snapshot(box.target()).size(), kFiles + kDirectories);
      EXPECT_LE(commands, kDirectories + 2);  // one mkdir per directory, backup made and removed
    }
  }
}

TEST(InstallerTest, FinishedStateStaysUpForASecondBeforeTheRunReturns) {
  Sandbox box;
  PackageReader reader;
  box.buildPackage(reader, {{"a.txt", "a", kPackageTime}});
  InstallProcessData data;
  StateLog log;
  auto finished = std::chrono::steady_clock::time_point::max();
  log.onState = [&](const StateLog::State& st) {
    if (st.percent == 100) finished = std::chrono::steady_clock::now();
  };
  log.attach(data);
  data.init(&reader, box.targetDir());
  Installer installer;  // the product's pause
  ASSERT_EQ(installer.run(&data), 0u);
  const auto returned = std::chrono::steady_clock::now();
  ASSERT_NE(finished, std::chrono::steady_clock::time_point::max());
  EXPECT_GE(returned - finished, std::chrono::milliseconds(kFinishPauseMs));
}

}  // namespace
