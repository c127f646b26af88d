// Crash safety: every call of the file layer failed in turn, the process
// stopped at every call (and the power cut there), damaged and hand-made
// journals, one run per target, and the places a run may and may not touch.
#include "install/recovery.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "compat/shell.h"
#include "install/journal.h"
#include "install/startup.h"
#include "install/target_lock.h"
#include "package_fixture.h"
#include "support/faulty_file_ops.h"

using namespace installtest;

namespace {

const _FILETIME kPackageTime = file_time(1600000000, 500);

// `s` with the times of folders that a run changed or made left out: two
// sandboxes installed at different moments then compare equal.
Snapshot without_new_folder_times(Snapshot s, const Snapshot& before) {
  for (auto& [path, value] : s)
    if (value.compare(0, 2, "40") == 0 && (!before.count(path) || before.at(path) != value))
      value = "changed folder";
  return s;
}

// An install over an older copy (replaced, kept, the user's own files, new
// files in old and new folders, a file given twice), or a first install
// into a folder the run makes.
struct Scenario {
  Sandbox box;
  PackageReader reader;
  std::string t = box.target() + "/";
  std::u16string dir;
  explicit Scenario(bool overOlderCopy) {
    if (overOlderCopy) {
      for (const char* d : {"old", "old/deep", "mine"}) EXPECT_EQ(mkdir((t + d).c_str(), 0755), 0);
      for (const char* f : {"a.txt", "old/b.txt", "old/deep/c.txt", "newer.txt", "mine/own.txt"})
        write_file(t + f, std::string("before ") + f);
      for (const char* f : {"a.txt", "old/b.txt", "old/deep/c.txt"})
        set_file_time(t + f, file_time(1500000000, 300));
      set_file_time(t + "newer.txt", file_time(1700000000, 700));
      set_file_time(t + "mine/own.txt", file_time(1450000000, 900));
      for (const char* d : {"old/deep", "old", "mine", ""})
        set_mtime(t + d, 1400000000 + long(strlen(d)), 123456789);
      dir = box.targetDir();
    } else {
      dir = w(t + "new/templates/");
    }
    set_mtime(box.target(), 1300000000, 1);
    box.buildPackage(reader, {{"a.txt", "new a", kPackageTime},
                              {"old\\b.txt", "new b", kPackageTime},
                              {"newer.txt", "package newer", kPackageTime},
                              {"fresh\\x\\n.txt", "new n", kPackageTime},
                              {"old\\deep\\c.txt", "new c", kPackageTime},
                              {"old\\added.txt", "added", kPackageTime},
                              {"a.txt", "new a again", plus(kPackageTime, 1)}});
    set_mtime(box.work(), 1300000000, 2);
    set_mtime(box.root() + "/work", 1300000000, 3);
  }
  // Whether the target is as before the run, or as the baseline's run left it.
  bool beforeOrAfter(const Snapshot& before, const Snapshot& after, bool& wasBefore) const {
    const Snapshot now = box.world();
    wasBefore = now == before;
    return wasBefore ||
           without_new_folder_times(now, before) == without_new_folder_times(after, before);
  }
};

// What a whole run gives: the calls it makes and the installed world.
struct Baseline {
  unsigned calls = 0;
  Snapshot before, after;
};
Baseline baseline(bool overOlderCopy) {
  Baseline b;
  Scenario s(overOlderCopy);
  b.before = s.box.world();
  FaultyFileOps counting;
  {
    ScopedFileOps use(&counting);
    Installer installer(0);
    EXPECT_EQ(run_install(s.reader, s.dir, installer), 0u);
  }
  b.calls = counting.calls;
  b.after = s.box.world();
  return b;
}

// Folders of long names below `base`, made until the path is `size` bytes long.
std::string deep_folder(std::string base, size_t size) {
  while (base.size() < size) {
    const size_t left = size - base.size();  // the last name is never empty
    base += "/" + std::string(left > 400 ? 200 : left > 201 ? left / 2 : left - 1, 'd');
    EXPECT_EQ(mkdir(base.c_str(), 0700), 0);
  }
  return base;
}

const char* kScenarioNames[] = {"fresh install into a new folder", "install over an older copy"};

// Every call of a run fails in turn (ENOSPC, EACCES, EIO by turns): the run
// either completes or fails, and the target is exactly as before or as
// after, folder times included, with nothing left in TMPDIR.
TEST(RecoveryTest, AnyFailingCallLeavesTheTargetBeforeOrAfter) {
  const int kErrors[] = {ENOSPC, EACCES, EIO};
  for (bool over : {false, true}) {
    SCOPED_TRACE(kScenarioNames[over]);
    const Baseline b = baseline(over);
    ASSERT_GT(b.calls, 60u);
    unsigned failed = 0;
    for (unsigned n = 1; n <= b.calls; ++n) {
      SCOPED_TRACE("failing call " + std::to_string(n));
      Scenario s(over);
      FaultyFileOps faulty;
      faulty.before = [n, &kErrors](unsigned call, const char*, const std::string&) {
        return call == n ? kErrors[n % 3] : 0;
      };
      unsigned code;
      {
        ScopedFileOps use(&faulty);
        Installer installer(0);
        code = run_install(s.reader, s.dir, installer);
        EXPECT_EQ(installer.failure().ok(), code == 0);
        EXPECT_TRUE(installer.keptBackupDir().empty());
      }
      failed += code != 0;
      bool before = false;
      EXPECT_TRUE(s.beforeOrAfter(b.before, b.after, before));
      EXPECT_EQ(before, code != 0) << snapshot_difference(b.before, s.box.world());
      // A folder of the run that could not be removed (its removal failed)
      // goes at the next start, without a word and without undoing anything.
      EXPECT_TRUE(recover_interrupted_runs().runs.empty());
      EXPECT_TRUE(s.beforeOrAfter(b.before, b.after, before));
      EXPECT_TRUE(snapshot(s.box.tmp()).empty());
    }
    // Most calls matter; a few (a hint to start writing) do not.
    EXPECT_GT(failed, b.calls / 2);
  }
}

// kKillLeavingACommand: killed while a command of the run, left in the
// background, still runs for 10 ms.
enum class Stop { kKill, kPowerCut, kKillLeavingACommand };

// Runs the scenario's install in a child that stops at call `n`; 77 when it
// stopped there, 0 when the run ended first.
int run_until(Scenario& s, unsigned n, Stop how) {
  const pid_t pid = fork();
  if (pid == 0) {
    FaultyFileOps faulty;
    faulty.before = [n, how, &faulty](unsigned call, const char*, const std::string&) {
      if (call == n) {
        if (how == Stop::kPowerCut) faulty.cutPower();
        if (how == Stop::kKillLeavingACommand) run_linux_command("sleep 0.01 >/dev/null 2>&1 &");
        _exit(77);
      }
      return 0;
    };
    ScopedFileOps use(&faulty);
    Installer installer(0);
    _exit(run_install(s.reader, s.dir, installer) == 0 ? 0 : 1);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The process stops at every call, or the power is cut there; the next
// start puts the target back as it was, or finds the run finished. It says
// "restored" exactly when the target is as before, and leaves nothing in
// TMPDIR.
TEST(RecoveryTest, AStopAtAnyCallIsUndoneByTheNextStart) {
  for (Stop how : {Stop::kKill, Stop::kPowerCut}) {
    for (bool over : {false, true}) {
      SCOPED_TRACE(std::string(kScenarioNames[over]) +
                   (how == Stop::kKill ? ", killed" : ", power cut"));
      const Baseline b = baseline(over);
      unsigned restored = 0;
      for (unsigned n = 1; n <= b.calls; ++n) {
        SCOPED_TRACE("stopped at call " + std::to_string(n));
        Scenario s(over);
        ASSERT_EQ(run_until(s, n, how), 77);
        const RecoveryReport report = recover_interrupted_runs();
        bool before = false;
        EXPECT_TRUE(s.beforeOrAfter(b.before, b.after, before))
            << snapshot_difference(b.before, s.box.world());
        ASSERT_LE(report.runs.size(), 1u);
        if (!report.runs.empty()) {
          EXPECT_TRUE(report.runs[0].complete);
          EXPECT_TRUE(before);
          restored += before;
        }
        EXPECT_TRUE(snapshot(s.box.tmp()).empty());
        EXPECT_TRUE(recover_interrupted_runs().runs.empty());  // nothing left to do
      }
      EXPECT_GT(restored, b.calls / 2);
    }
  }
}

// An interrupt during recovery stops it between two steps, wherever it
// comes; the next start finishes the job.
TEST(RecoveryTest, AnInterruptedRecoveryIsFinishedByTheNextStart) {
  const Baseline b = baseline(true);
  for (unsigned k = 1;; ++k) {
    SCOPED_TRACE("interrupted at call " + std::to_string(k));
    Scenario s(true);
    ASSERT_EQ(run_until(s, b.calls * 2 / 3, Stop::kKill), 77);
    std::atomic<bool> stop{false};
    FaultyFileOps counting;
    counting.before = [&](unsigned call, const char*, const std::string&) {
      if (call == k) stop = true;
      return 0;
    };
    PlayBackControl control{nullptr, &stop};
    RecoveryReport first;
    {
      ScopedFileOps use(&counting);
      first = recover_interrupted_runs(control);
    }
    const RecoveryReport second = recover_interrupted_runs();
    EXPECT_EQ(snapshot_difference(b.before, s.box.world()), "");
    EXPECT_EQ(first.runs.size() + second.runs.size(), 1u);
    EXPECT_TRUE(snapshot(s.box.tmp()).empty());
    if (!first.stopped) break;  // k went past the last call
  }
}

// A command that outlives its killed run holds the run's locks until it
// ends; the next start waits for it and then undoes the run.
TEST(RecoveryTest, ACommandThatOutlivesItsRunIsWaitedFor) {
  const Baseline b = baseline(true);
  Scenario s(true);
  ASSERT_EQ(run_until(s, b.calls / 2, Stop::kKillLeavingACommand), 77);
  EXPECT_EQ(recover_interrupted_runs().runs.size(), 1u);
  EXPECT_EQ(snapshot_difference(b.before, s.box.world()), "");
}

// One killed run, its journal then damaged at many bytes or cut short at any
// length: no original file is ever lost (each is in place or in the kept
// backup, with its bytes and time), and "restored" is said only when the
// target is exactly as before. A kept backup is never played back again.
TEST(RecoveryTest, ADamagedJournalNeverCostsAnOriginalFile) {
  const Baseline b = baseline(true);
  std::mt19937 rng(11);
  unsigned cases = 0, kept = 0;
  for (unsigned n = b.calls / 3; n < b.calls; n += b.calls / 4) {
    for (int damage = 0; damage < 40; ++damage) {
      SCOPED_TRACE("stopped at call " + std::to_string(n) + ", damage " + std::to_string(damage));
      Scenario s(true);
      ASSERT_EQ(run_until(s, n, Stop::kKill), 77);
      const std::string journal = s.box.tmp() + "/zqstp0/" + kJournalName;
      std::string bytes = read_file(journal);
      ASSERT_GT(bytes.size(), 100u);
      if (damage % 2)
        bytes.resize(damage == 1 ? 0 : rng() % bytes.size());
      else
        bytes[rng() % bytes.size()] ^= char(1 + rng() % 255);
      write_file(journal, bytes);
      ++cases;

      const RecoveryReport report = recover_interrupted_runs();
      const Snapshot now = s.box.world();
      ASSERT_LE(report.runs.size(), 1u);
      const bool reported = !report.runs.empty();
      const bool complete = reported && report.runs[0].complete;
      if (complete) {
        EXPECT_EQ(snapshot_difference(b.before, now), "");
      }
      const std::string backup = reported ? narrow_lib(report.runs[0].backupDir) : "";
      for (const char* f : {"a.txt", "old/b.txt", "old/deep/c.txt", "newer.txt", "mine/own.txt"}) {
        const std::string key = std::string("target/") + f;
        const bool inPlace = now.count(key) && now.at(key) == b.before.at(key);
        const bool inBackup = reported && !complete && exists(backup + f) &&
                              snapshot(backup).at(f) == b.before.at(key);
        EXPECT_TRUE(inPlace || inBackup) << f;
      }
      kept += reported && !complete;
      EXPECT_TRUE(recover_interrupted_runs().runs.empty());
    }
  }
  // Every damage is seen, a cut between two records too (the length mark):
  // none of these journals is trusted as whole.
  EXPECT_EQ(kept, cases);
}

// Journals written by hand: a record naming the target through ".", a path
// holding a NUL, a path outside the target, and a folder record for the
// target that no proof backs. Nothing outside the proven changes is touched.
TEST(RecoveryTest, HandMadeRecordsAreNotObeyed) {
  Sandbox box;
  const std::string t = box.target();
  write_file(t + "/keep.txt", "the user's");
  write_file(box.root() + "/victim.txt", "outside the target");
  const Snapshot before = box.world();
  auto record = [](JournalOp op, const std::string& path, uint64_t size = 0) {
    return encode_entry({op, path, 0, size});
  };
  const std::string head = record(JournalOp::kTarget, t + "/", t.size());
  const std::string journals[] = {
      head + record(JournalOp::kDirectory, t + "/."),
      head + record(JournalOp::kPlacedFile, t + std::string("/keep.txt\0x", 11)),
      head + record(JournalOp::kPlacedFile, box.root() + "/victim.txt"),
      head + record(JournalOp::kDirectory, t),
      head + record(JournalOp::kTempFile, t + "/../victim.txt"),
  };
  for (const std::string& journal : journals) {
    const std::string backup = box.tmp() + "/zqstp5/";
    ASSERT_EQ(system(("rm -rf " + backup + " && mkdir -m 700 " + backup).c_str()), 0);
    write_file(backup + kJournalName, journal);
    const RecoveryReport report = recover_interrupted_runs();
    EXPECT_EQ(snapshot_difference(before, box.world()), "");
    ASSERT_EQ(report.runs.size(), 1u);
    // A journal cut off by a record it does not trust is not "restored"...
    EXPECT_FALSE(report.runs[0].complete);
    // ...and a kept backup is reported once, then left alone.
    EXPECT_TRUE(recover_interrupted_runs().runs.empty());
  }
}

// Other users' locks anywhere count for nothing; runs into two new sibling
// folders go on side by side; a second run into the same target fails at
// once with the true reason and touches nothing; a live run is not
// recovered.
TEST(RecoveryTest, LocksHoldOnlyTheTargetOfThisUsersRuns) {
  Scenario s(true);
  // Locks as another process could hold them: on the target and on "/".
  const int targetFd = open(s.t.c_str(), O_RDONLY | O_DIRECTORY);
  const int rootFd = open("/", O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(flock(targetFd, LOCK_EX | LOCK_NB), 0);
  ASSERT_EQ(flock(rootFd, LOCK_SH | LOCK_NB), 0);

  int go[2], paused[2];
  ASSERT_EQ(pipe(go), 0);
  ASSERT_EQ(pipe(paused), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    FaultyFileOps faulty;
    faulty.before = [&](unsigned call, const char* name, const std::string&) {
      if (call > 40 && std::string(name) == "rename" && paused[1] >= 0) {
        char c;
        (void)!write(paused[1], "p", 1);
        (void)!read(go[0], &c, 1);
        paused[1] = -1;
      }
      return 0;
    };
    ScopedFileOps use(&faulty);
    Installer installer(0);
    _exit(run_install(s.reader, w(s.t + "sibling1/"), installer) == 0 ? 0 : 1);
  }
  char c;
  ASSERT_EQ(read(paused[0], &c, 1), 1);
  const Snapshot during = s.box.world();
  // A second and a third run into the paused run's target: a refusal leaves
  // the lock as it was.
  for (int run = 2; run <= 3; ++run) {
    Installer other(0);
    StateLog log;
    EXPECT_EQ(run_install(s.reader, w(s.t + "sibling1/"), other, &log), kTargetBusy) << run;
    EXPECT_TRUE(other.failure().operation == Operation::kLockTarget &&
                log.states.back().phase == RunPhase::kFailed);
  }
  EXPECT_TRUE(recover_interrupted_runs().runs.empty());
  EXPECT_EQ(snapshot_difference(during, s.box.world()), "");
  // The sibling and the existing target go on.
  Installer third(0), fourth(0);
  EXPECT_EQ(run_install(s.reader, w(s.t + "sibling2/"), third), 0u);
  EXPECT_EQ(run_install(s.reader, s.dir, fourth), 0u);
  ASSERT_EQ(write(go[1], "g", 1), 1);
  int status = 0;
  waitpid(pid, &status, 0);
  EXPECT_EQ(status, 0);
  for (const char* dir : {"sibling1/", "sibling2/", ""})
    EXPECT_EQ(read_file(s.t + dir + "a.txt"), "new a again") << dir;
  EXPECT_TRUE(snapshot(s.box.tmp()).empty());
  close(targetFd);
  close(rootFd);
}

// Targets the run completes as mkdir -p and a plain copy would: a subfolder
// that is the user's link to another folder (a failed run puts it back there
// too), a target that cannot be listed, and a temporary directory with a path
// of 4,000 bytes.
TEST(RecoveryTest, TargetsAreUsedAsSpelled) {
  for (bool fail : {false, true}) {
    SCOPED_TRACE(fail ? "linked folder, failed run" : "linked folder");
    Scenario s(true);
    const std::string elsewhere = s.box.root() + "/elsewhere";
    ASSERT_EQ(system(("mv " + s.t + "old " + elsewhere).c_str()), 0);
    ASSERT_EQ(symlink(elsewhere.c_str(), (s.t + "old").c_str()), 0);
    if (fail) write_file(s.t + "fresh", "a file where a folder must go");
    const Snapshot before = s.box.world();
    Installer installer(0);
    EXPECT_EQ(run_install(s.reader, s.dir, installer), fail ? ERROR_PATH_NOT_FOUND : 0u);
    if (fail) {
      EXPECT_EQ(snapshot_difference(before, s.box.world()), "");
    } else {
      EXPECT_EQ(read_file(elsewhere + "/deep/c.txt"), "new c");
    }
  }
  {
    SCOPED_TRACE("a target that cannot be listed");
    Scenario s(true);
    FaultyFileOps unlistable;
    // What a folder of mode 0333 refuses to a user who is not root.
    const std::string target = s.box.target();
    unlistable.before = [&target](unsigned, const char* name, const std::string& path) {
      return std::string(name) == "open" && path.rfind(target, 0) == 0 &&
                     path.find('.', target.size()) == std::string::npos
                 ? EACCES
                 : 0;
    };
    ScopedFileOps use(&unlistable);
    Installer installer(0);
    EXPECT_EQ(run_install(s.reader, s.dir, installer), 0u);
  }
  {
    SCOPED_TRACE("a file whose path is just short of PATH_MAX");
    Sandbox box;
    // The file's path is 4,090 bytes; the temporary name beside it, longer
    // than the file's name, makes a path that no single call may name.
    const std::string name = "short.cfg";
    const std::string deep = deep_folder(box.target(), PATH_MAX - 6 - name.size() - 1);
    PackageReader reader;
    box.buildPackage(reader, {{name, "x", kPackageTime}});
    Installer installer(0);
    EXPECT_EQ(run_install(reader, w(deep + "/"), installer), 0u);
    EXPECT_EQ(read_file(deep + "/" + name), "x");
  }
  {
    SCOPED_TRACE("a temporary directory 4,000 bytes long");
    Sandbox box;
    ScopedEnv env("TMPDIR", deep_folder(box.tmp(), 4000));
    PackageReader reader;
    box.buildPackage(reader, {{"a.txt", "a", kPackageTime}, {"b\\c.txt", "c", kPackageTime}});
    Installer installer(0);
    EXPECT_EQ(run_install(reader, w(box.target() + "/fresh/"), installer), 0u);
    EXPECT_EQ(read_file(box.target() + "/fresh/b/c.txt"), "c");
  }
}

// What a start does in the temporary directory. It removes only what the
// installer provably made: the user's files named like a working file stay,
// an empty backup folder or an empty journal goes without a word. A
// directory that others may write into without the sticky bit is refused
// before anything happens, by a start and by a run; with the bit it is used.
TEST(RecoveryTest, AStartTouchesOnlyWhatTheInstallerMadeInASafeTemporaryDirectory) {
  Sandbox box;
  const std::string tmp = box.tmp() + "/";
  write_file(tmp + "kptnotes1", "the user's notes");
  write_file(tmp + "zqstp3", "the user's file");
  for (const char* d : {"zqstp1", "zqstp2"}) ASSERT_EQ(mkdir((tmp + d).c_str(), 0700), 0);
  write_file(tmp + "zqstp2/" + kJournalName, "");
  write_file(box.root() + "/plom8.tpk", "not a package");
  auto start = [&] {
    PackageReader reader;
    StarterState starter;
    return prepare_installation(w(box.root() + "/plom8.tpk"), reader, starter);
  };
  const StartupReport report = start();
  EXPECT_TRUE(report.restored.empty() && report.notRestored.empty());
  EXPECT_EQ(snapshot(box.tmp()).size(), 2u);  // kptnotes1 and zqstp3
  EXPECT_EQ(read_file(tmp + "kptnotes1"), "the user's notes");

  PackageReader package;
  box.buildPackage(package, {{"a.txt", "a", kPackageTime}});
  for (mode_t mode : {mode_t(0777), mode_t(01777)}) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(chmod(box.tmp().c_str(), mode), 0);
    EXPECT_EQ(start().status.operation, mode == 0777 ? Operation::kCheckTemp : Operation::kUnpack);
    const Snapshot before = snapshot(box.root());
    Installer installer(0);
    EXPECT_EQ(run_install(package, box.targetDir(), installer) == 0, mode != 0777);
    if (mode == 0777) {
      EXPECT_EQ(snapshot_difference(before, snapshot(box.root())), "");
    }
  }
  EXPECT_EQ(snapshot(box.tmp()).size(), 2u);

  // Another start's recovery locks the backup folder this run has just made,
  // finds it empty and removes it, and a third run makes the name again: this
  // run goes on with the next name and leaves the third run's folder alone.
  const std::string first = tmp + "zqstp0";
  int locks = 0, replaced = 0;  // the target's lock comes first, then the folder's
  FaultyFileOps racing;
  racing.before = [&](unsigned, const char* name, const std::string&) {
    if (std::string(name) == "lock" && ++locks == 2)
      replaced = rmdir(first.c_str()) == 0 && mkdir(first.c_str(), 0700) == 0;
    return 0;
  };
  ScopedFileOps use(&racing);
  Installer installer(0);
  EXPECT_EQ(run_install(package, box.targetDir(), installer), 0u);
  EXPECT_TRUE(replaced && exists(first));
}

// Odd paths, times before 1970 and sizes past 4 GiB come back as written.
TEST(RecoveryTest, JournalRecordsRoundTrip) {
  const JournalEntry saved{
      JournalOp::kSavedFile, "/t/with\ttab\\back\nslash\xc3\xa9\xff", 1234567890123ull, 0, {-5, 0},
      {999999999, 0}};
  const JournalEntry placed{JournalOp::kPlacedFile, saved.path, saved.inode, 1ull << 40, {-5, 0},
                            {999999999, 0},         true};
  const JournalText text = parse_journal(encode_entry(saved) + encode_entry(placed));
  ASSERT_EQ(text.entries.size(), 2u);
  for (const JournalEntry& e : text.entries)
    EXPECT_TRUE(e.path == saved.path && e.inode == saved.inode && e.sec[0] == -5 &&
                e.nsec[0] == 999999999);
  EXPECT_TRUE(text.entries[1].fresh && text.entries[1].size == 1ull << 40);
}

}  // namespace
