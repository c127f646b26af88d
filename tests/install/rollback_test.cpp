// The rollback journal on its own: backup naming, what is journaled, what is
// moved aside, and what a rollback puts back and removes.
#include "install/rollback.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "compat/shell.h"
#include "compat/text.h"
#include "package_fixture.h"

using namespace testsupport;
using namespace installtest;

namespace {

std::u16string w(const std::string& s) { return widen_lib(s); }

std::vector<std::string> narrow_all(const std::vector<std::u16string>& list) {
  std::vector<std::string> out;
  for (const std::u16string& s : list) out.push_back(narrow_lib(s));
  return out;
}

TEST(RollbackTest, StartTakesTheFirstFreeBackupNameAndJournalsNothing) {
  Sandbox box;
  write_file(box.tmp() + "/zqstp0", "someone else's file");
  ASSERT_EQ(mkdir((box.tmp() + "/zqstp1").c_str(), 0755), 0);

  Rollback rb;
  ASSERT_EQ(rb.start(box.targetDir()), 0u);
  const RollbackRecord& record = rb.records().back();
  EXPECT_EQ(narrow_lib(record.backupDir), box.tmp() + "/zqstp2/");
  EXPECT_TRUE(exists(box.tmp() + "/zqstp2"));
  EXPECT_TRUE(record.newDirectoryList.empty());  // neither the temp nor the backup directory
  EXPECT_EQ(rb.stop(), 0u);
  EXPECT_FALSE(exists(box.tmp() + "/zqstp2"));
  EXPECT_TRUE(exists(box.tmp() + "/zqstp0"));
  EXPECT_TRUE(exists(box.tmp() + "/zqstp1"));

  // No target: no backup directory, and a rollback has nothing to undo.
  ASSERT_EQ(rb.start(u""), 0u);
  EXPECT_TRUE(rb.records().back().backupDir.empty());
  EXPECT_EQ(rb.records().size(), 2u);
  EXPECT_EQ(rb.rollback(5), 5u);
  EXPECT_EQ(box.backups().size(), 2u);
}

TEST(RollbackTest, MakeDirectoryTreeJournalsExactlyTheLevelsItCreates) {
  Sandbox box;
  const std::string t = box.target();
  write_file(t + "/plain", "a file, not a directory");
  const std::string longName(300, 'x');
  struct Case {
    std::string dir;
    unsigned code;
    std::vector<std::string> journaled;  // added by this call
    unsigned long commands;              // shell commands run by this call
  };
  const Case cases[] = {
      {t, 0, {}, 0},  // the target itself existed
      {"/", 0, {}, 0},
      {t + "/a/b/c", 0, {t + "/a", t + "/a/b", t + "/a/b/c"}, 1},
      {t + "/a/b/c", 0, {}, 0},  // made already in this run
      {t + "/a/b/", 0, {}, 0},
      {t + "//a/b/d", 0, {t + "/a/b/d"}, 1},
      {t + "/plain/sub", ERROR_PATH_NOT_FOUND, {}, 1},
      // mkdir -p makes "n" and then fails: "n" is still this run's.
      {t + "/n/" + longName, ERROR_PATH_NOT_FOUND, {t + "/n"}, 1},
  };
  Rollback rb;
  ASSERT_EQ(rb.start(box.targetDir()), 0u);
  std::vector<std::string> journal;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.dir.substr(0, 80));
    const unsigned long before = shell_command_count();
    EXPECT_EQ(rb.makeDirectoryTree(w(c.dir)), c.code);
    EXPECT_EQ(shell_command_count() - before, c.commands);
    journal.insert(journal.end(), c.journaled.begin(), c.journaled.end());
    EXPECT_EQ(narrow_all(rb.records().back().newDirectoryList), journal);
  }
  EXPECT_TRUE(exists(t + "/a/b/d"));
}

TEST(RollbackTest, StoreMovesAnOldFileAsideOnceAndRefusesWhatItCannotSave) {
  Sandbox box;
  const std::string t = box.target();
  ASSERT_EQ(mkdir((t + "/sub").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((t + "/dir").c_str(), 0755), 0);
  write_file(t + "/dir/inside", "x");
  write_file(t + "/sub/old.txt", "original");
  set_mtime(t + "/sub/old.txt", 1300000000, 123456700);
  const std::string original = snapshot(t)["sub/old.txt"];

  Rollback rb;
  ASSERT_EQ(rb.start(box.targetDir()), 0u);
  const std::string backup = narrow_lib(rb.records().back().backupDir);

  unsigned long before = shell_command_count();
  EXPECT_EQ(rb.storeRBFile(w(t + "/missing.txt")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(shell_command_count(), before);  // nothing to save: no command
  EXPECT_EQ(rb.storeRBFile(w(t + "/dir")), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(read_file(t + "/dir/inside"), "x");
  EXPECT_EQ(rb.storeRBFile(w(box.root() + "/elsewhere.txt")), ERROR_INVALID_PARAMETER);

  EXPECT_EQ(rb.storeRBFile(w(t + "/sub/old.txt")), 0u);
  EXPECT_FALSE(exists(t + "/sub/old.txt"));
  EXPECT_EQ(snapshot(backup)["sub/old.txt"], original);  // bytes and time

  // The run writes the new file; the same path comes again (a name given
  // twice): the new file stays where it is and the saved original is kept.
  write_file(t + "/sub/old.txt", "new");
  EXPECT_EQ(rb.storeRBFile(w(t + "/sub//old.txt")), 0u);
  EXPECT_EQ(read_file(t + "/sub/old.txt"), "new");
  EXPECT_EQ(snapshot(backup)["sub/old.txt"], original);
  // A file the run created is not saved either.
  rb.addRBFile(w(t + "/created.txt"));
  write_file(t + "/created.txt", "c");
  EXPECT_EQ(rb.storeRBFile(w(t + "/created.txt")), 0u);
  EXPECT_EQ(read_file(t + "/created.txt"), "c");
  EXPECT_FALSE(exists(backup + "created.txt"));

  EXPECT_EQ(rb.rollback(9), 9u);
  EXPECT_EQ(snapshot(t)["sub/old.txt"], original);
  EXPECT_FALSE(exists(t + "/created.txt"));
}

// The move itself fails (the backup subdirectory, made earlier in the run,
// was replaced by a plain file): the run must fail, the file must stay.
TEST(RollbackTest, FailedMoveAsideFailsTheRunAndKeepsTheFile) {
  Sandbox box;
  const std::string t = box.target() + "/";
  ASSERT_EQ(mkdir((t + "other").c_str(), 0755), 0);
  write_file(t + "other/b.txt", "original");
  Rollback rb;
  ASSERT_EQ(rb.start(box.targetDir()), 0u);
  const std::string backup = narrow_lib(rb.records().back().backupDir);
  ASSERT_EQ(rb.makeBackupDirectoryTree(w(backup + "other")), 0u);
  ASSERT_EQ(rmdir((backup + "other").c_str()), 0);
  write_file(backup + "other", "in the way");

  EXPECT_EQ(rb.storeRBFile(w(t + "other/b.txt")), ERROR_CANTWRITE);
  EXPECT_EQ(read_file(t + "other/b.txt"), "original");
  EXPECT_EQ(rb.rollback(4), 4u);
  EXPECT_EQ(read_file(t + "other/b.txt"), "original");
  EXPECT_TRUE(box.backups().empty());
}

TEST(RollbackTest, RollbackRestoresOldFilesAndRemovesOnlyWhatTheRunMade) {
  Sandbox box;
  const std::string t = box.target() + "/";
  for (const char* dir : {"keep", "sub", "sub/deep"}) ASSERT_EQ(mkdir((t + dir).c_str(), 0755), 0);
  const char* oldFiles[] = {"top.txt", "keep/own.txt", "keep/.hidden", "sub/deep/old.txt"};
  for (const char* f : oldFiles) {
    write_file(t + f, std::string("old ") + f);
    set_mtime(t + f, 1200000000, 100);
  }
  Snapshot expected = snapshot(box.target());

  Rollback rb;
  ASSERT_EQ(rb.start(box.targetDir()), 0u);
  // Replaced files.
  for (const char* f : {"top.txt", "keep/.hidden", "sub/deep/old.txt"}) {
    ASSERT_EQ(rb.storeRBFile(w(t + f)), 0u) << f;
    write_file(t + f, "new");
  }
  // New directories inside an old one, and new files in old and new directories.
  ASSERT_EQ(rb.makeDirectoryTree(w(t + "keep/new/deeper")), 0u);
  rb.addRBFile(w(t + "keep/new/deeper/f.txt"));
  write_file(t + "keep/new/deeper/f.txt", "new");
  rb.addRBFile(w(t + "keep/added.txt"));
  write_file(t + "keep/added.txt", "new");
  // A directory the run made, where an old file turns up while the run goes
  // on and is then replaced: that directory must stay for the file's return.
  ASSERT_EQ(rb.makeDirectoryTree(w(t + "made/inner")), 0u);
  write_file(t + "made/old.txt", "appeared during the run");
  set_mtime(t + "made/old.txt", 1250000000, 200);
  const Snapshot withAppeared = snapshot(box.target());
  expected["made"] = "d";
  expected["made/old.txt"] = withAppeared.at("made/old.txt");
  ASSERT_EQ(rb.storeRBFile(w(t + "made/old.txt")), 0u);
  write_file(t + "made/old.txt", "new");
  rb.addRBFile(w(t + "made/n.txt"));
  write_file(t + "made/n.txt", "new");
  write_file(t + "made/inner/m.txt", "new");
  // Something that is not an old file turns up in the backup directory.
  write_file(narrow_lib(rb.records().back().backupDir) + "stray.txt", "not ours");

  EXPECT_EQ(rb.rollback(5), 5u);
  EXPECT_EQ(snapshot_difference(expected, snapshot(box.target())), "");
  EXPECT_TRUE(box.backups().empty());
}

TEST(RollbackTest, BackupIsKeptWhenAnOldFileCannotGoBack) {
  Sandbox box;
  const std::string t = box.target() + "/";
  ASSERT_EQ(mkdir((t + "sub").c_str(), 0755), 0);
  write_file(t + "sub/old.txt", "precious");
  Rollback rb;
  ASSERT_EQ(rb.start(box.targetDir()), 0u);
  ASSERT_EQ(rb.storeRBFile(w(t + "sub/old.txt")), 0u);
  // The old file's directory is replaced by a plain file behind the run's back.
  ASSERT_EQ(system(("rm -rf '" + t + "sub'").c_str()), 0);
  write_file(t + "sub", "in the way");

  EXPECT_EQ(rb.rollback(7), 7u);
  EXPECT_EQ(read_file(narrow_lib(rb.records().back().backupDir) + "sub/old.txt"), "precious");
}

}  // namespace
