// The rollback journal on its own: backup naming, what is journaled and moved
// aside, and what a rollback puts back and removes.
#include "install/rollback.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "compat/shell.h"
#include "package_fixture.h"

using namespace installtest;

namespace {

// The folders the journal records as made by the run, in order.
std::vector<std::u16string> made_folders(const Rollback& rb) {
  std::vector<std::u16string> out;
  for (const JournalEntry& e : rb.journal())
    if (e.op == JournalOp::kDirectoryMade) out.push_back(w(e.path));
  return out;
}

TEST(RollbackTest, BackupNameAndTheDirectoryJournalHoldOnlyWhatTheRunCreated) {
  Sandbox box;
  const std::string t = box.target();
  write_file(box.tmp() + "/zqstp0", "someone else's file");
  ASSERT_EQ(mkdir((box.tmp() + "/zqstp1").c_str(), 0755), 0);
  write_file(t + "/plain", "a file, not a directory");
  const std::string longName(300, 'x');
  const struct {
    std::string dir;
    unsigned code;
    std::vector<std::string> journaled;  // added by this call
    unsigned long commands;              // shell commands run by this call
  } cases[] = {
      {t, 0, {}, 0},  // the target itself existed
      {t + "/a/b/c", 0, {t + "/a", t + "/a/b", t + "/a/b/c"}, 1},
      {t + "/a/b/c", 0, {}, 0},  // made already in this run
      {t + "//a/b/d", 0, {t + "/a/b/d"}, 1},
      // The spelling's folders are made as mkdir -p makes them: "u" too.
      {t + "/u/../v", 0, {t + "/u", t + "/v"}, 1},
      {t + "/plain/sub", ERROR_PATH_NOT_FOUND, {}, 1},
      {"", ERROR_PATH_NOT_FOUND, {}, 0},
      {"/", 0, {}, 0},
      // mkdir -p makes "n" and then fails: "n" is still this run's.
      {t + "/n/" + longName, ERROR_PATH_NOT_FOUND, {t + "/n"}, 1},
  };
  const Snapshot before = box.world();
  Rollback rb;
  ASSERT_EQ(rb.start(box.targetDir()), 0u);
  EXPECT_EQ(narrow_lib(rb.record().backupDir), box.tmp() + "/zqstp2/");
  std::vector<std::u16string> journal;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.dir.substr(0, 80));
    const unsigned long commands = shell_command_count();
    EXPECT_EQ(rb.makeDirectoryTree(w(c.dir)), c.code);
    EXPECT_EQ(shell_command_count() - commands, c.commands);
    for (const std::string& dir : c.journaled) journal.push_back(w(dir));
    EXPECT_EQ(made_folders(rb), journal);
  }
  // Several at once: a folder that an earlier one makes costs no command,
  // and the first that cannot be made is named.
  const std::vector<std::string> dirs = {t + "/m/n", t + "/m", t + "/plain/x", t + "/m/n/o"};
  for (const std::string& dir : dirs) rb.prepareDirectory(dir);
  ASSERT_EQ(rb.barrier(), 0u);
  const unsigned long commands = shell_command_count();
  EXPECT_EQ(rb.makeDirectories(dirs), 2u);
  EXPECT_EQ(shell_command_count() - commands, 3u);
  for (const char* dir : {"/m", "/m/n", "/m/n/o"}) journal.push_back(w(t + dir));
  EXPECT_EQ(made_folders(rb), journal);
  EXPECT_EQ(rb.rollback(5), 5u);
  EXPECT_EQ(snapshot_difference(before, box.world()), "");

  // No target: no backup directory, and nothing to undo.
  ASSERT_EQ(rb.start(u""), 0u);
  EXPECT_TRUE(rb.record().backupDir.empty());
  EXPECT_EQ(rb.rollback(5), 5u);
  EXPECT_EQ(snapshot_difference(before, box.world()), "");
}

// Cases the installer cannot stage: a move aside that fails, an old file that
// turns up in a directory the run made, a stray file in the backup, and an
// old file whose place is taken (its backup must then be kept).
TEST(RollbackTest, RollbackPutsBackExactlyWhatWasMovedAside) {
  Sandbox box;
  const std::string t = box.target() + "/";
  for (const char* dir : {"other", "gone"}) ASSERT_EQ(mkdir((t + dir).c_str(), 0755), 0);
  for (const char* f : {"top.txt", "other/b.txt", "gone/precious.txt"}) {
    write_file(t + f, std::string("old ") + f);
    set_mtime(t + f, 1200000000, 123456700);
  }
  Snapshot expected = snapshot(box.target());
  Rollback rb;
  ASSERT_EQ(rb.start(box.targetDir()), 0u);
  const std::string backup = narrow_lib(rb.record().backupDir);
  for (const char* f : {"top.txt", "gone/precious.txt"}) {
    ASSERT_EQ(rb.storeRBFile(w(t + f)), 0u);
    EXPECT_FALSE(exists(t + f));
    write_file(t + f, "new");
    rb.addRBFile(w(t + f));
  }
  // The backup subdirectory, made earlier in the run, is now a plain file.
  ASSERT_EQ(rb.makeBackupDirectoryTree(w(backup + "other")), 0u);
  ASSERT_EQ(rmdir((backup + "other").c_str()), 0);
  write_file(backup + "other", "in the way");
  EXPECT_EQ(rb.storeRBFile(w(t + "other/b.txt")), ERROR_CANTWRITE);
  EXPECT_EQ(read_file(t + "other/b.txt"), "old other/b.txt");
  // The directory an old file returns to stays.
  ASSERT_EQ(rb.makeDirectoryTree(w(t + "made/inner")), 0u);
  write_file(t + "made/old.txt", "appeared during the run");
  expected["made/old.txt"] = snapshot(t + "made")["old.txt"];
  ASSERT_EQ(rb.storeRBFile(w(t + "made/old.txt")), 0u);
  write_file(t + "made/old.txt", "new");
  rb.addRBFile(w(t + "made/old.txt"));
  write_file(t + "made/inner/m.txt", "new");
  write_file(backup + "stray.txt", "not ours");
  // A plain file takes the place of the directory "gone".
  ASSERT_EQ(system(("rm -r '" + t + "gone'").c_str()), 0);
  write_file(t + "gone", "in the way");
  expected.erase("gone/precious.txt");
  expected["gone"] = snapshot(box.target())["gone"];

  EXPECT_EQ(rb.rollback(9), 9u);
  Snapshot now = snapshot(box.target());
  expected["made"] = now["made"];  // the run's own folder, with the time the rollback left it
  EXPECT_EQ(now["made"].compare(0, 2, "40"), 0);
  EXPECT_EQ(snapshot_difference(expected, now), "");
  EXPECT_EQ(read_file(backup + "gone/precious.txt"), "old gone/precious.txt");
}

}  // namespace
