#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "compat/file_finder.h"
#include "compat/file_system.h"
#include "compat/shell.h"
#include "compat/text.h"
#include "support/test_support.h"

using namespace testsupport;

namespace {

std::u16string w(const std::string& s) { return widen_lib(s); }

TEST(DirectoriesTest, CreateMoveDeleteRemove) {
  TempDir dir;
  EXPECT_EQ(FileSystem::CreateDirectory(w(dir / "a/b/c")), 0u);  // parents too
  EXPECT_TRUE(exists(dir / "a/b/c"));
  EXPECT_EQ(FileSystem::CreateDirectory(w(dir / "a/b")), 0u);  // existing: success
  write_file(dir / "plain", "x");
  EXPECT_EQ(FileSystem::CreateDirectory(w(dir / "plain/sub")), ERROR_FILE_NOT_FOUND);

  EXPECT_EQ(FileSystem::MoveFile(w(dir / "missing"), w(dir / "x")), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FileSystem::MoveFile(w(dir / "plain"), w(dir / "moved")), 0u);
  EXPECT_EQ(read_file(dir / "moved"), "x");
  EXPECT_EQ(FileSystem::MoveFile(w(dir / "moved"), w(dir / "a")), 0u);  // into a directory
  EXPECT_TRUE(exists(dir / "a/moved"));

  EXPECT_EQ(FileSystem::DeleteFile(w(dir / "missing")), 0u);
  EXPECT_EQ(FileSystem::DeleteFile(w(dir / "a/b")), 0u);  // a directory is left alone
  EXPECT_TRUE(exists(dir / "a/b"));
  EXPECT_EQ(FileSystem::DeleteFile(w(dir / "a/moved")), 0u);
  EXPECT_FALSE(exists(dir / "a/moved"));
  EXPECT_EQ(FileSystem::RemoveDirectory(w(dir / "missing")), 0u);
  EXPECT_EQ(FileSystem::RemoveDirectory(w(dir / "a")), 0u);
  EXPECT_FALSE(exists(dir / "a"));
}

TEST(DirectoriesTest, PathsReachTheShellLiterally) {
  TempDir dir;
  // Anything the shell would expand or end the quotes with.
  const std::string hostile[] = {"q\"uote", "$(touch INJECTED)", "`touch INJECTED`",
                                 "back\\slash", "$HOME", "sp ace;touch INJECTED", "new\nline",
                                 "Каталог 'x'"};
  std::set<std::string> expected;
  for (const std::string& name : hostile) {
    std::string path = dir / name;
    ASSERT_EQ(FileSystem::CreateDirectory(w(path + "/sub")), 0u) << name;
    EXPECT_TRUE(exists(path + "/sub")) << name;
    write_file(path + "/f", "1");
    EXPECT_EQ(FileSystem::MoveFile(w(path + "/f"), w(path + "/g")), 0u) << name;
    EXPECT_TRUE(exists(path + "/g")) << name;
    EXPECT_EQ(FileSystem::DeleteFile(w(path + "/g")), 0u);
    EXPECT_FALSE(exists(path + "/g")) << name;
    EXPECT_EQ(FileSystem::RemoveDirectory(w(path + "/sub")), 0u);
    EXPECT_FALSE(exists(path + "/sub")) << name;
    expected.insert(name);
  }
  // Nothing else appeared anywhere: no INJECTED file, no stray directory.
  std::set<std::string> found;
  for (const auto& entry : snapshot(dir.path())) found.insert(entry.first);
  EXPECT_EQ(found, expected);
  EXPECT_FALSE(exists("INJECTED"));
  EXPECT_EQ(shell_escape("a\"b$c`d\\e"), "a\\\"b\\$c\\`d\\\\e");
}

TEST(DirectoriesTest, FinderListsEveryMatchWithItsAttributes) {
  TempDir dir;
  FileSystem::CreateDirectory(w(dir / "sub"));
  write_file(dir / "one.txt", "1");
  write_file(dir / "two.txt", "2");
  write_file(dir / "a[1].txt", "3");

  std::set<std::string> listed;
  FileFinder all;
  for (bool ok = all.reset(w(dir / "*")); ok; ok = all.next()) {
    std::string name = narrow_lib(all.name());
    listed.insert(name + (all.attributes() == FILE_ATTRIBUTE_DIRECTORY ? "/" : ""));
  }
  EXPECT_EQ(listed, (std::set<std::string>{"./", "../", "sub/", "one.txt", "two.txt", "a[1].txt"}));
  EXPECT_EQ(all.name(), u"");  // closed after the end

  FileFinder txt;
  std::set<std::string> texts;
  for (bool ok = txt.reset(w(dir / "*.txt")); ok; ok = txt.next())
    texts.insert(narrow_lib(txt.name()));
  EXPECT_EQ(texts.size(), 3u);

  // A literal path finds its one entry.
  FileFinder literal;
  ASSERT_TRUE(literal.reset(w(dir / "sub")));
  EXPECT_EQ(literal.name(), u"sub");
  EXPECT_EQ(literal.attributes(), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_FALSE(literal.next());
  // The mask is only ever a pattern: a[1] names a1, not the entry spelled a[1].
  write_file(dir / "sub/a1", "4");
  write_file(dir / "sub/a[1]", "5");
  std::set<std::string> bracketed;
  FileFinder bracket;
  for (bool ok = bracket.reset(w(dir / "sub/a[1]")); ok; ok = bracket.next())
    bracketed.insert(narrow_lib(bracket.name()));
  EXPECT_EQ(bracketed, std::set<std::string>{"a1"});
  // A link to nothing has no status to read: not found.
  ASSERT_EQ(symlink("nowhere", (dir / "sub/dangling").c_str()), 0);
  FileFinder dangling;
  EXPECT_FALSE(dangling.reset(w(dir / "sub/dangling")));

  FileFinder missing;
  EXPECT_FALSE(missing.reset(w(dir / "nowhere/*")));
  EXPECT_FALSE(missing.reset(w(dir / "nothing.here")));
  EXPECT_EQ(missing.attributes(), 0u);
  // "/name" has the empty directory in front of its only "/", which cannot be
  // opened, even when the root holds that name.
  for (const char16_t* rooted : {u"/tmp", u"/*", u"/"}) {
    FileFinder root;
    EXPECT_FALSE(root.reset(rooted)) << narrow_lib(rooted);
    EXPECT_EQ(root.name(), u"");
  }
}

TEST(DirectoriesTest, TemporaryPathAndFiles) {
  TempDir dir;
  std::u16string path;
  {
    ScopedEnv tmp("TMPDIR", dir.path());
    EXPECT_EQ(FileSystem::GetTempPath(path), 0u);
    EXPECT_EQ(path, w(dir.path() + "/"));

    std::u16string name;
    EXPECT_EQ(FileSystem::GetTempFileName(u"/nonexistent", u"kptlong", name), 0u);
    std::string n = narrow_lib(name);
    EXPECT_EQ(n.rfind(dir / "kptlo", 0), 0u) << n;  // TMPDIR wins, prefix cut to 5
    EXPECT_EQ(n.size(), (dir / "kptlo").size() + 6);
    EXPECT_TRUE(exists(n));
    std::u16string second;  // five bytes of the narrow prefix, a character cut or not
    EXPECT_EQ(FileSystem::GetTempFileName(u"/nonexistent", u"\u00e9\u00e9\u00e9", second), 0u);
    n = narrow_lib(second);
    EXPECT_EQ(n.rfind(dir / "\xC3\xA9\xC3\xA9\xC3", 0), 0u) << n;
    EXPECT_EQ(n.size(), (dir / "kptlo").size() + 6);
    EXPECT_TRUE(exists(n));
    std::u16string unnamed;  // no prefix: "file", as tempnam
    EXPECT_EQ(FileSystem::GetTempFileName(u"/nonexistent", u"", unnamed), 0u);
    EXPECT_EQ(narrow_lib(unnamed).rfind(dir / "file", 0), 0u) << narrow_lib(unnamed);
    EXPECT_EQ(unnamed.size(), w(dir / "file").size() + 6);
    EXPECT_TRUE(exists(narrow_lib(unnamed)));

    // The probe file goes where GetTempFileName puts it, TMPDIR first,
    // whatever directory is asked about, and is gone afterwards.
    const testsupport::Snapshot before = testsupport::snapshot(dir.path());
    const unsigned long commands = shell_command_count();
    EXPECT_TRUE(isWritePermitted(w(dir / "no/such/folder")));
    EXPECT_EQ(shell_command_count(), commands + 2);  // touch, then rm -f
    EXPECT_TRUE(testsupport::snapshot(dir.path()) == before);
    uint64_t free64 = 0;
    unsigned free32 = 0;
    EXPECT_EQ(FileSystem::GetFreeSpaceTmpDir64(&free64), 0u);
    EXPECT_EQ(FileSystem::GetFreeSpaceTmpDir(&free32), 0u);
    EXPECT_GT(free64, 0u);
    EXPECT_EQ(free32, static_cast<unsigned>(free64 & 0xFFFFFFFFu));
    EXPECT_EQ(FileSystem::GetFreeSpaceTmpDir(nullptr), ERROR_INVALID_PARAMETER);
  }
  {
    write_file(dir / "file", "");
    ScopedEnv tmp("TMPDIR", dir / "file");  // not a directory
    EXPECT_EQ(FileSystem::GetTempPath(path), 0u);
    EXPECT_EQ(path, u"/tmp/");
    std::u16string name;
    FileSystem::CreateDirectory(w(dir / "own"));
    EXPECT_EQ(FileSystem::GetTempFileName(w(dir / "own"), u"Orvo", name), 0u);
    EXPECT_EQ(narrow_lib(name).rfind(dir / "own/Orvo", 0), 0u);
  }
}

TEST(DirectoriesTest, CommandOutputAndRoot) {
  EXPECT_EQ(get_one_line_output(u"printf 'abc\\nsecond\\n'"), u"abc");
  EXPECT_EQ(get_one_line_output(u"printf abc"), u"ab");
  EXPECT_EQ(get_one_line_output(u"true"), u"");
  unsigned long before = shell_command_count();
  EXPECT_EQ(run_linux_command("exit 3") >> 8, 3);
  EXPECT_EQ(shell_command_count(), before + 1);
  EXPECT_TRUE(isDiskRoot(u"/"));
  for (const char16_t* not_root : {u"//", u"/tmp", u"/.", u"", u"\\"})
    EXPECT_FALSE(isDiskRoot(not_root));
}

}  // namespace
