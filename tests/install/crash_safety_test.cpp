// Crash safety of a run: a child killed at every journaled step and then
// recovered, one run per target, backup names another process planted, the
// target's spelling and length, and what a failure reports.
#include <dirent.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

#include "install/installer.h"
#include "install/journal.h"
#include "install/recovery.h"
#include "install/target_lock.h"
#include "install/target_path.h"
#include "package_fixture.h"

using namespace installtest;

namespace {

const _FILETIME kPackageTime = file_time(1600000000, 500);

// Everything below `root` by lstat: type, mode, modification time to the
// nanosecond (directories included), and a file's bytes or a link's target.
Snapshot full_snapshot(const std::string& root, const std::string& rel = "") {
  Snapshot out;
  const std::string dir = rel.empty() ? root : root + "/" + rel;
  DIR* d = opendir(dir.c_str());
  if (!d) return out;
  std::vector<std::string> names;
  while (dirent* e = readdir(d))
    if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") names.push_back(e->d_name);
  closedir(d);
  for (const std::string& name : names) {
    const std::string r = rel.empty() ? name : rel + "/" + name;
    const std::string path = root + "/" + r;
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) continue;
    std::ostringstream v;
    v << std::oct << st.st_mode << std::dec << " " << st.st_mtim.tv_sec << "." << st.st_mtim.tv_nsec;
    if (S_ISREG(st.st_mode) && (st.st_mode & 0400)) v << " " << read_file(path);
    if (S_ISLNK(st.st_mode)) {
      char target[PATH_MAX];
      ssize_t n = readlink(path.c_str(), target, sizeof target);
      v << " -> " << std::string(target, n > 0 ? size_t(n) : 0);
    }
    out[r] = v.str();
    if (S_ISDIR(st.st_mode)) {
      Snapshot inner = full_snapshot(root, r);
      out.insert(inner.begin(), inner.end());
    }
  }
  return out;
}

Snapshot without_tmp(Snapshot s) {
  s.erase("tmp");
  return s;
}

// The child's abort point: the journal record after which it dies.
unsigned g_abortAt = 0;
unsigned g_records = 0;
// When set, the child tells the parent on pause[1] and waits on pause[0]
// at g_abortAt instead of dying.
const int* g_pause = nullptr;

void abort_at_step(unsigned) {
  if (++g_records != g_abortAt) return;
  if (!g_pause) _exit(70);
  char c;
  (void)!write(g_pause[1], "p", 1);
  (void)!read(g_pause[0], &c, 1);
}

// Starts one install in a child that dies after journal record `step`, or
// with `pause` waits there (see abort_at_step).
pid_t start_child(PackageReader& reader, const std::u16string& dir, unsigned step,
                  const int* pause = nullptr) {
  pid_t pid = fork();
  if (pid == 0) {
    g_pause = pause;
    g_records = 0;
    g_abortAt = step;
    set_journal_step_hook(abort_at_step);
    Installer installer(0);
    _exit(run_install(reader, dir, installer) == 0 ? 0 : 1);
  }
  return pid;
}
// The child's exit status: 70 when it died at its step, 0 when the run ended first.
int wait_child(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
int run_child_until(PackageReader& reader, const std::u16string& dir, unsigned step) {
  return wait_child(start_child(reader, dir, step));
}

// An install over an older copy: replaced, kept (newer), the user's own
// files, new files in old and new folders, a file given twice.
struct OverOlderCopy {
  Sandbox box;
  PackageReader reader;
  std::string t = box.target() + "/";
  OverOlderCopy() {
    for (const char* dir : {"old", "old/deep", "mine"}) EXPECT_EQ(mkdir((t + dir).c_str(), 0755), 0);
    for (const char* f : {"a.txt", "old/b.txt", "old/deep/c.txt", "newer.txt", "mine/own.txt"})
      write_file(t + f, std::string("before ") + f);
    for (const char* f : {"a.txt", "old/b.txt", "old/deep/c.txt"})
      set_file_time(t + f, file_time(1500000000, 300));
    set_file_time(t + "newer.txt", file_time(1700000000, 700));
    set_file_time(t + "mine/own.txt", file_time(1450000000, 900));
    for (const char* dir : {"old/deep", "old", "mine", ""})
      set_mtime(t + dir, 1400000000 + long(strlen(dir)), 123456789);
    box.buildPackage(reader, {{"a.txt", "new a", kPackageTime},
                              {"old\\b.txt", "new b", kPackageTime},
                              {"newer.txt", "package newer", kPackageTime},
                              {"fresh\\x\\n.txt", "new n", kPackageTime},
                              {"old\\deep\\c.txt", "new c", kPackageTime},
                              {"old\\added.txt", "added", kPackageTime},
                              {"a.txt", "new a again", plus(kPackageTime, 1)}});
  }
};

TEST(CrashSafetyTest, AKillAtEveryJournaledStepIsUndoneByRecovery) {
  std::vector<std::string> outcomes;  // per step: "before", "installed" or what differs
  unsigned steps = 0;
  Snapshot installedFiles;
  for (unsigned k = 1; k < 100; ++k) {
    SCOPED_TRACE("step " + std::to_string(k));
    OverOlderCopy s;
    const Snapshot before = without_tmp(full_snapshot(s.box.root()));
    const int status = run_child_until(s.reader, s.box.targetDir(), k);
    if (status == 0) {  // the run ended before step k: every step has been tried
      steps = k - 1;
      installedFiles = snapshot(s.box.target());
      EXPECT_TRUE(recover_interrupted_runs().empty());
      EXPECT_TRUE(full_snapshot(s.box.tmp()).empty());
      break;
    }
    ASSERT_EQ(status, 70);
    // A run that died after its commit record has nothing to undo and is
    // not reported; every earlier death is.
    const std::vector<RecoveredRun> recovered = recover_interrupted_runs();
    ASSERT_LE(recovered.size(), 1u);
    if (recovered.size() == 1) {
      EXPECT_TRUE(recovered[0].complete);
      EXPECT_EQ(narrow_lib(recovered[0].targetDir), s.t);
    }
    EXPECT_TRUE(full_snapshot(s.box.tmp()).empty());
    // The temporary directory's own time changes with any run; its
    // contents are checked above.
    const Snapshot after = without_tmp(full_snapshot(s.box.root()));
    outcomes.push_back(after == before ? "before" : snapshot_difference(before, after));
    // Playing the journal back again finds nothing left to do.
    EXPECT_TRUE(recover_interrupted_runs().empty());
  }
  // One record per folder, saved file, new file and temporary file, the
  // target, folder times and the commit: the scenario has well over 15.
  ASSERT_GT(steps, 15u);
  ASSERT_EQ(outcomes.size(), steps);
  for (unsigned k = 0; k + 1 < steps; ++k) EXPECT_EQ(outcomes[k], "before") << "step " << k + 1;
  EXPECT_NE(outcomes[steps - 1], "before");
  // Dying after the commit record: the install stands, only the backup goes.
  OverOlderCopy s;
  ASSERT_EQ(run_child_until(s.reader, s.box.targetDir(), steps), 70);
  ASSERT_TRUE(recover_interrupted_runs().empty());
  EXPECT_EQ(snapshot_difference(installedFiles, snapshot(s.box.target())), "");
  EXPECT_EQ(read_file(s.t + "a.txt"), "new a again");
  EXPECT_EQ(read_file(s.t + "newer.txt"), "before newer.txt");
  EXPECT_TRUE(full_snapshot(s.box.tmp()).empty());
}

// A second run into a target in use fails at once and changes nothing; the
// live run is left alone by recovery and finishes normally.
TEST(CrashSafetyTest, OneRunPerTargetAndALiveRunIsNotRecovered) {
  for (const std::string sub : {"", "not/yet/"}) {
    SCOPED_TRACE(sub.empty() ? "existing target" : "target made by the first run");
    OverOlderCopy s;
    const std::u16string target = w(s.t + sub);
    int pipes[2][2];
    ASSERT_EQ(pipe(pipes[0]), 0);
    ASSERT_EQ(pipe(pipes[1]), 0);
    // The child waits after its fourth record (some folders and files changed already).
    const int pause[] = {pipes[0][0], pipes[1][1]};
    const pid_t pid = start_child(s.reader, target, 4, pause);
    char c;
    ASSERT_EQ(read(pipes[1][0], &c, 1), 1);
    const Snapshot during = full_snapshot(s.box.root());

    Installer second(0);
    StateLog log;
    EXPECT_EQ(run_install(s.reader, target, second, &log), kTargetBusy);
    ASSERT_FALSE(log.states.empty());
    EXPECT_EQ(log.states.back().message, LoadResString("IDS_INSTALL_ERROR"));
    EXPECT_EQ(second.failure().step, Step::kLockTarget);
    EXPECT_TRUE(recover_interrupted_runs().empty());
    EXPECT_EQ(snapshot_difference(during, full_snapshot(s.box.root())), "");

    ASSERT_EQ(write(pipes[0][1], "go", 1), 1);
    EXPECT_EQ(wait_child(pid), 0);
    EXPECT_EQ(read_file(s.t + sub + "a.txt"), "new a again");
    EXPECT_TRUE(full_snapshot(s.box.tmp()).empty());
    for (auto& p : pipes) close(p[0]), close(p[1]);
  }
}

// Names planted in the temporary directory are passed over: a folder of the
// user's with contents and a link to another folder are never entered or
// removed, by the run or by recovery. A newer installed file is kept even
// when it cannot be read. A failure names the cause with the system's reason.
TEST(CrashSafetyTest, PlantedBackupNamesUnreadableFilesAndFailureCauses) {
  for (bool fail : {false, true}) {
    SCOPED_TRACE(fail ? "failed run" : "successful run");
    OverOlderCopy s;
    const std::string tmp = s.box.tmp() + "/";
    ASSERT_EQ(mkdir((tmp + "zqstp0").c_str(), 0755), 0);
    write_file(tmp + "zqstp0/a.txt", "planted");
    const std::string victim = s.box.root() + "/victim";
    ASSERT_EQ(mkdir(victim.c_str(), 0755), 0);
    write_file(victim + "/a.txt", "the victim's");
    ASSERT_EQ(symlink(victim.c_str(), (tmp + "zqstp1").c_str()), 0);
    ASSERT_EQ(symlink("/nowhere", (tmp + "zqstp2").c_str()), 0);
    ASSERT_EQ(chmod((s.t + "newer.txt").c_str(), 0), 0);
    if (fail) write_file(s.t + "fresh", "a file where a folder must go");
    const Snapshot planted = full_snapshot(s.box.tmp());
    const Snapshot victimBefore = full_snapshot(victim);
    const Snapshot before = full_snapshot(s.box.target());
    // Mode 0 stops nobody running as root: that the newer file is never
    // opened is seen directly.
    const int opens = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(opens, (s.t + "newer.txt").c_str(), IN_OPEN), 0);

    Installer installer(0);
    EXPECT_EQ(run_install(s.reader, s.box.targetDir(), installer), fail ? ERROR_PATH_NOT_FOUND : 0u);
    char events[4096];
    EXPECT_LT(read(opens, events, sizeof events), 0) << "the newer installed file was opened";
    close(opens);
    EXPECT_EQ(installer.rollbackJournal().records().back().backupDir, w(tmp + "zqstp3/"));
    EXPECT_TRUE(recover_interrupted_runs().empty());
    EXPECT_EQ(snapshot_difference(planted, full_snapshot(s.box.tmp())), "");
    EXPECT_EQ(snapshot_difference(victimBefore, full_snapshot(victim)), "");
    const Snapshot after = full_snapshot(s.box.target());
    EXPECT_EQ(after.at("newer.txt"), before.at("newer.txt"));
    if (fail) {
      EXPECT_EQ(snapshot_difference(before, after), "");
      EXPECT_EQ(describe(installer.failure()), "cannot create " + s.t + "fresh/x/n.txt: Not a directory");
      EXPECT_TRUE(installer.keptBackupDir().empty());
    } else {
      EXPECT_TRUE(installer.failure().ok());
    }
  }
}

// The target's spelling with ".." (a folder named on the way is never made)
// and the length of its paths.
TEST(CrashSafetyTest, TargetSpellingAndLength) {
  {
    OverOlderCopy s;
    Installer installer(0);
    EXPECT_EQ(run_install(s.reader, w(s.t + "u/w/../../v/./"), installer), 0u);
    EXPECT_FALSE(exists(s.t + "u"));
    EXPECT_EQ(read_file(s.t + "v/fresh/x/n.txt"), "new n");
  }
  {
    SCOPED_TRACE("paths past PATH_MAX");
    OverOlderCopy s;
    // An existing tree about 60 bytes short of PATH_MAX, a package name longer.
    std::string deep = s.t + "deep";
    ASSERT_EQ(mkdir(deep.c_str(), 0755), 0);
    while (deep.size() < PATH_MAX - 200) {
      deep += "/" + std::string(100, 'd');
      ASSERT_EQ(mkdir(deep.c_str(), 0755), 0);
    }
    PackageReader reader;
    s.box.buildPackage(reader, {{"a\\b\\" + std::string(150, 'n'), "x", kPackageTime}});
    const Snapshot before = full_snapshot(s.box.root());
    Installer installer(0);
    EXPECT_EQ(run_install(reader, w(deep + "/new/level"), installer), ERROR_INVALID_NAME);
    EXPECT_EQ(installer.failure().step, Step::kStartRun);
    EXPECT_EQ(installer.failure().sysError, ENAMETOOLONG);
    EXPECT_EQ(snapshot_difference(before, full_snapshot(s.box.root())), "");
  }
}

// A rollback that cannot put an old file back keeps the backup and names it;
// the next recovery finishes it once the obstacle is gone.
TEST(CrashSafetyTest, AKeptBackupIsFinishedByALaterRecovery) {
  OverOlderCopy s;
  write_file(s.t + "fresh", "a file where a folder must go: the run fails there");
  const Snapshot before = without_tmp(full_snapshot(s.box.root()));
  Installer installer(0);
  StateLog log;
  // When the fourth entry is reached, old/b.txt is in the backup; its folder
  // is then taken by a file.
  log.onState = [&](const StateLog::State&) {
    if (log.states.size() != 4) return;
    EXPECT_EQ(system(("rm -rf '" + s.t + "old'").c_str()), 0);
    write_file(s.t + "old", "in the way");
  };
  EXPECT_EQ(run_install(s.reader, s.box.targetDir(), installer, &log), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(installer.failure().step, Step::kCreateFile);
  ASSERT_FALSE(installer.keptBackupDir().empty());
  const std::string kept = narrow_lib(installer.keptBackupDir());
  EXPECT_EQ(read_file(kept + "old/b.txt"), "before old/b.txt");

  // The obstacle gone (the user put the folder back, without its file).
  ASSERT_EQ(unlink((s.t + "old").c_str()), 0);
  ASSERT_EQ(mkdir((s.t + "old").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((s.t + "old/deep").c_str(), 0755), 0);
  const std::vector<RecoveredRun> recovered = recover_interrupted_runs();
  ASSERT_EQ(recovered.size(), 1u);
  EXPECT_TRUE(recovered[0].complete);
  EXPECT_EQ(narrow_lib(recovered[0].backupDir), kept);
  EXPECT_EQ(read_file(s.t + "old/b.txt"), "before old/b.txt");
  EXPECT_EQ(read_file(s.t + "a.txt"), "before a.txt");
  EXPECT_FALSE(exists(s.t + "old/deep/c.txt"));  // lost with the folder by the user's hand
  EXPECT_FALSE(exists(s.t + "fresh/x"));
  EXPECT_EQ(before.at("target/a.txt"), full_snapshot(s.box.root()).at("target/a.txt"));
  EXPECT_TRUE(full_snapshot(s.box.tmp()).empty());
}

// Journal lines keep any path byte for byte; a line cut short is left out.
TEST(CrashSafetyTest, JournalLinesRoundTrip) {
  JournalEntry saved;
  saved.op = JournalOp::kSavedFile;
  saved.path = w("/t/with\ttab\\back\nslash\tand\n");
  saved.path += w("\t\n\\\xc3\xa9\n\t\xff");
  saved.inode = 1234567890123ull;
  saved.sec[0] = -5;
  saved.nsec[0] = 999999999;
  saved.sec[1] = 1700000000;
  saved.nsec[1] = 1;
  JournalEntry times = saved;
  times.op = JournalOp::kTimes;
  const std::string text = encode_entry(saved) + "garbage line\n" + encode_entry(times) +
                           encode_entry(saved).substr(0, 20);
  const std::vector<JournalEntry> read = parse_journal(text);
  ASSERT_EQ(read.size(), 2u);
  for (const JournalEntry& e : read)
    EXPECT_TRUE(e.path == saved.path && e.inode == saved.inode && e.sec[0] == -5 &&
                e.nsec[0] == 999999999 && e.sec[1] == 1700000000 && e.nsec[1] == 1);
  EXPECT_EQ(read[0].op, JournalOp::kSavedFile);
  EXPECT_EQ(read[1].op, JournalOp::kTimes);
}

TEST(CrashSafetyTest, ResolvedTargets) {
  TempDir root;
  const std::string r = root.path();
  ASSERT_EQ(mkdir((r + "/t").c_str(), 0755), 0);
  ASSERT_EQ(symlink((r + "/t").c_str(), (r + "/link").c_str()), 0);
  const struct {
    std::string given, resolved;
  } cases[] = {
      {r + "/t", r + "/t/"},
      {r + "/t/u/../v", r + "/t/v/"},  // "u" does not exist and is never made
      {r + "/link/./a//b/", r + "/t/a/b/"},
      {r + "/t/../t/x/../../y", r + "/y/"},
      {"", ""},
  };
  std::string real = r;
  if (char* p = realpath(r.c_str(), nullptr)) real = p, free(p);
  for (const auto& c : cases) {
    std::string expected = c.resolved;
    if (!expected.empty()) expected.replace(0, r.size(), real);
    EXPECT_EQ(narrow_lib(resolve_target(w(c.given))), expected) << c.given;
  }
}

}  // namespace
