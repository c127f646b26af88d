// tpk-build and tpk-list against the loader: build -> list -> load.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "compat/text.h"
#include "package/package_loader.h"
#include "package_test_util.h"
#include "support/test_support.h"

using namespace testsupport;
using namespace pkgtest;

namespace {

// Exit status and output (standard output and error) of the tool `exe` run with `args`.
std::pair<int, std::string> run(const char* exe, const std::string& args) {
  std::string out;
  FILE* pipe = popen(("'" + std::string(exe) + "' " + args + " 2>&1").c_str(), "r");
  char buffer[4096];
  for (size_t n; pipe && (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
  int status = pipe ? pclose(pipe) : -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out};
}

struct TreeFile {
  std::string rel;      // as on disk (UTF-8, or not)
  std::u16string name;  // as the package must carry it
  std::string contents;
  int64_t seconds;
  long nanoseconds;
};

// In byte order of `rel`, as the builder sorts.
const std::vector<TreeFile> kTree = {
    {"bad\xFF", u"bad\xDCFF", "invalid UTF-8 kept", 1500000000, 100},
    {"readme.txt", u"readme.txt", "read me\n", 951800767, 123456789},  // 2000-02-29
    {"sub/deep/data.bin", u"sub/deep/data.bin", test_bytes(200000, 1, true), 1700000000, 999999999},
    {"sub/empty", u"sub/empty", "", 0, 0},
    {"z.txt", u"z.txt", test_bytes(100000, 2), 1600000000, 50},
    {"\xC3\xBC/\xE5\x90\x8D\xF0\x9F\x98\x80", u"\u00FC/\u540D\U0001F600", "unicode", 1, 0}};

}  // namespace

TEST(ToolsTest, BuildListLoadRoundTrip) {
  TempDir tmp, src, outDir;
  ScopedEnv env("TMPDIR", tmp.path());
  for (const TreeFile& f : kTree) {
    write_file(src / f.rel, f.contents);
    set_mtime(src / f.rel, f.seconds, f.nanoseconds);
  }
  // The loaded catalogue matches the tree entry by entry, to the byte and the 100 ns.
  auto expectLoadedTree = [](const std::string& package, size_t languages) {
    PackageReader reader;
    ASSERT_TRUE(load_package(reader, widen_lib(package)).ok());
    EXPECT_EQ(reader.languages.size(), languages);
    ASSERT_EQ(reader.files.size(), kTree.size());
    const std::string written = read_file(working_file_path(reader));
    for (size_t i = 0; i < kTree.size(); ++i) {
      const FileEntry& f = reader.files[i];
      EXPECT_EQ(f.name, kTree[i].name) << i;
      EXPECT_EQ(FileTimeToU64(f.time), uint64_t(kTree[i].seconds + 11644473600) * 10000000 +
                                           uint64_t(kTree[i].nanoseconds / 100));
      EXPECT_EQ(written.substr(f.offset, f.size), kTree[i].contents) << i;
    }
  };
  auto build = [&](const std::string& to, const std::string& more = "") {
    return run(TPK_BUILD_EXE, "'" + src.path() + "' -o '" + to + "'" + more);
  };
  auto list = [](const std::string& package) { return run(TPK_LIST_EXE, "'" + package + "'"); };
  const std::string package = outDir / "plom8.tpk", langs = outDir / "langs.tpk";
  auto [status, out] = build(package);
  ASSERT_EQ(status, 0) << out;
  expectLoadedTree(package, 1);
  // The listing: one line per file with time, size, offset and name (as on disk).
  auto [listStatus, listing] = list(package);
  ASSERT_EQ(listStatus, 0) << listing;
  EXPECT_NE(listing.find("header kind: 0\nlanguages: 1\n  \"en\" \"\" \"\" \"\"\n"), out.npos);
  EXPECT_NE(listing.find("\n  2000-02-29T05:06:07.1234567Z            8         18 readme.txt\n"),
            out.npos)
      << listing;
  for (const TreeFile& f : kTree) EXPECT_NE(listing.find(" " + f.rel + "\n"), out.npos);

  // A language table, in stored blocks; the listing and the loader both read it.
  const char* kLangs = " --level 0 --lang 'en:T:V:x' --lang 'de:Vorlagen:Hersteller:doc/de.pdf'";
  ASSERT_EQ(build(langs, kLangs).first, 0);
  expectLoadedTree(langs, 2);
  listing = list(langs).second;
  EXPECT_NE(listing.find("header kind: 1\nlanguages: 2\n"), out.npos) << listing;
  EXPECT_NE(listing.find("\"de\" \"Vorlagen\" \"Hersteller\" \"doc/de.pdf\""), out.npos);

  // The same tree gives the same bytes, and a package written inside the
  // tree is left out of the next build.
  ASSERT_EQ(build(src / "plom8.tpk").first, 0);
  ASSERT_EQ(build(src / "plom8.tpk").first, 0);
  EXPECT_EQ(read_file(src / "plom8.tpk"), read_file(package));

  // tpk-list refuses a damaged package; failed builds leave the good package
  // alone and no staging file.
  std::string whole = read_file(package);
  write_file(outDir / "bad.tpk", whole.substr(0, whole.size() / 2));
  auto [badStatus, bad] = list(outDir / "bad.tpk");
  EXPECT_EQ(badStatus, 1);
  EXPECT_NE(bad.find("damaged package: a file's contents"), out.npos) << bad;
  EXPECT_EQ(list(outDir / "absent.tpk").first, 2);
  EXPECT_EQ(run(TPK_BUILD_EXE, "'" + src / "absent" + "' -o '" + package + "'").first, 1);
  EXPECT_EQ(run(TPK_BUILD_EXE, "'" + src.path() + "'").first, 2);
  EXPECT_EQ(build(package, " --level 12").first, 2);
  EXPECT_EQ(read_file(package), whole);
  EXPECT_EQ(snapshot(outDir.path()).size(), 3u);  // bad.tpk, langs.tpk, plom8.tpk
}

// tpk-list checks every checked record at load and every checked file's
// contents; a package without checks lists as before. --no-check builds one.
TEST(ToolsTest, ListChecksRecordsAndContents) {
  TempDir dir;
  const std::vector<TestFile> files = {{u"a", 1, test_bytes(70000, 1)}, {u"e", 2, ""},
                                       {u"z", 3, "zed"}};
  const std::string sound = working_file(files, true);
  std::string badContents = sound, badRecord = sound;
  badContents[sound.size() - 3 - 100] ^= 1;  // near the end of "a"'s contents
  badRecord[sound.rfind(std::string("z\0", 2), sound.size() - 70003)] ^= 1;  // the name "z"
  struct Case {
    std::string working;
    int status;
    const char* output;
  } cases[] = {
      {sound, 0, "files: 3 (3 with a CRC-32 check)"},
      {working_file(files), 0, "files: 3 (0 with a CRC-32 check)"},
      {badContents, 1, "the contents of a do not match its record"},
      {badRecord, 1, "a file record does not match its check"},
  };
  for (const Case& c : cases) {
    write_file(dir / "p.tpk", deflate_raw(c.working));
    auto [status, out] = run(TPK_LIST_EXE, "'" + (dir / "p.tpk") + "'");
    EXPECT_EQ(status, c.status) << out;
    EXPECT_NE(out.find(c.output), std::string::npos) << out;
  }
  TempDir src;
  write_file(src / "f", "x");
  ASSERT_EQ(run(TPK_BUILD_EXE, "'" + src.path() + "' -q --no-check -o '" + (dir / "n.tpk") + "'")
                .first, 0);
  EXPECT_NE(run(TPK_LIST_EXE, "'" + (dir / "n.tpk") + "'").second.find("(0 with a CRC-32"),
            std::string::npos);
}
