// tpk-build as a vendor runs it: reproducible packages, exclusions, language
// checks, warnings and the summary line.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/test_support.h"
#include "tool_run.h"

using namespace testsupport;
using namespace tooltest;

namespace {

// The names a package lists, from the file lines of tpk-list (names
// without spaces: the last field).
std::set<std::string> listed_names(const std::string& package) {
  Result r = run(kList + " " + q(package) + " | sed '1,/^files: /d' | awk '{print $NF}'");
  EXPECT_EQ(r.status, 0) << r.err;
  std::set<std::string> names;
  for (size_t start = 0, end; (end = r.out.find('\n', start)) != std::string::npos; start = end + 1)
    names.insert(r.out.substr(start, end - start));
  return names;
}

}  // namespace

TEST(TpkBuildTest, SourceDateEpochMakesCheckoutsIdentical) {
  TempDir first, second, out;
  const int64_t kEpoch = 1700000000;
  // The same contents checked out twice at different moments; one file is
  // older than the epoch and keeps its own time.
  for (const TempDir* tree : {&first, &second}) {
    const int64_t now = tree == &first ? 1800000000 : 1800000777;
    put(*tree / "old.txt", "old", 1500000000, 123456700);
    put(*tree / "sub/new.txt", "new", now, 1);
    put(*tree / "edge.txt", "edge", kEpoch, 100);  // 100 ns past the epoch
  }
  auto build = [&](const TempDir& tree, const std::string& package, const std::string& env) {
    return run(env + " " + kBuild + " " + q(tree.path()) + " -o " + q(out / package) + " -q");
  };
  const std::string epoch = "SOURCE_DATE_EPOCH=" + std::to_string(kEpoch);
  ASSERT_EQ(build(first, "a.tpk", epoch).status, 0);
  ASSERT_EQ(build(second, "b.tpk", epoch).status, 0);
  EXPECT_EQ(read_file(out / "a.tpk"), read_file(out / "b.tpk"));
  // A package written inside the tree is left out of the next build.
  for (int i = 0; i < 2; ++i)
    ASSERT_EQ(
        run(epoch + " " + kBuild + " " + q(first.path()) + " -q -o " + q(first / "p.tpk")).status,
        0);
  EXPECT_EQ(read_file(first / "p.tpk"), read_file(out / "a.tpk"));
  const std::string listing = run(kList + " " + q(out / "a.tpk")).out;
  EXPECT_TRUE(contains(listing, "2017-07-14T02:40:00.1234567Z            3"));  // old.txt as it was
  EXPECT_TRUE(contains(listing, "2023-11-14T22:13:20.0000000Z            4"));  // edge.txt clamped
  EXPECT_TRUE(
      contains(listing, "2023-11-14T22:13:20.0000000Z            3"));  // sub/new.txt clamped

  // A value that is not whole seconds is refused.
  for (const char* bad : {"", "-1", "+5", "1.5", "99999999999999999999"}) {
    Result r = build(first, "bad.tpk", std::string("SOURCE_DATE_EPOCH=") + q(bad));
    EXPECT_EQ(r.status, 2) << bad;
    EXPECT_TRUE(contains(r.err, "SOURCE_DATE_EPOCH must be a number of seconds")) << r.err;
    EXPECT_FALSE(exists(out / "bad.tpk")) << bad;
  }
}

TEST(TpkBuildTest, ExcludePatternsMatchRelativePathsAndTheirFolders) {
  TempDir tree, out;
  for (const char* rel : {".git/HEAD", ".git/objects/ab/cd", "a.txt", "a.txt~", "sub/b.txt",
                          "sub/b.txt~", "sub/.git", "docs/x.bak", "docs/deep/y.bak"})
    put(tree / rel, rel);
  const struct {
    std::vector<std::string> patterns;
    std::set<std::string> kept;
  } cases[] = {
      // A folder's name leaves out all below it; only the top-level .git matches ".git".
      {{".git"},
       {"a.txt", "a.txt~", "docs/deep/y.bak", "docs/x.bak", "sub/.git", "sub/b.txt", "sub/b.txt~"}},
      // "*" crosses "/": the backups at every depth.
      {{"*~", "*.bak"}, {".git/HEAD", ".git/objects/ab/cd", "a.txt", "sub/.git", "sub/b.txt"}},
      {{"*.git", "docs"},
       {"a.txt", "a.txt~", "sub/b.txt", "sub/b.txt~"}},  // "*" matches nothing too
      {{"sub/*", "?.txt"},
       {".git/HEAD", ".git/objects/ab/cd", "a.txt~", "docs/deep/y.bak", "docs/x.bak"}},
      {{".git/objects/*/cd", "docs/*/y.bak"},
       {".git/HEAD", "a.txt", "a.txt~", "docs/x.bak", "sub/.git", "sub/b.txt", "sub/b.txt~"}},
  };
  for (const auto& c : cases) {
    std::string args;
    for (const std::string& p : c.patterns) args += " --exclude " + q(p);
    Result r = run(kBuild + " " + q(tree.path()) + " -o " + q(out / "plom8.tpk") + " -q" + args);
    ASSERT_EQ(r.status, 0) << args << r.err;
    EXPECT_EQ(listed_names(out / "plom8.tpk"), c.kept) << args;
  }

  // Nothing left to pack: refused, the earlier package stays.
  const std::string before = read_file(out / "plom8.tpk");
  Result r = run(kBuild + " " + q(tree.path()) + " -o " + q(out / "plom8.tpk") + " --exclude '*'");
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "no files to pack")) << r.err;
  EXPECT_EQ(read_file(out / "plom8.tpk"), before);
  EXPECT_FALSE(exists(out / "plom8.tpk.part"));
  EXPECT_EQ(run(kBuild + " " + q(tree.path()) + " -o x.tpk --exclude").status, 2);
}

TEST(TpkBuildTest, LanguagesWarningsAndSummary) {
  TempDir tree, out;
  put(tree / "docs/readme.html", "<html></html>\n");
  put(tree / "t/a.cfg", std::string(5000, 'a'));
  const std::string package = out / "plom8.tpk";
  auto build = [&](const std::string& args, const std::string& to = "plom8.tpk") {
    return run(kBuild + " " + q(tree.path()) + " -o " + q(out / to) + " " + args);
  };

  // Codes: one of the installer's twelve, each once.
  const struct {
    std::string langs;
    int status;
    const char* message;
  } languages[] = {
      {"--lang en:P:V:/docs/readme.html --lang de:P:V:/docs/readme.html", 0, ""},
      {"--lang xx:P:V:/d", 2,
       "unknown language code \"xx\" (the installer knows ru uk en lv lt bg de ro ka kk vi tr)"},
      {"--lang de:P:V:/d --lang ru:P:V:/d --lang de:Q:W:/e", 2, "language \"de\" given twice"},
  };
  for (const auto& c : languages) {
    std::filesystem::remove(package);
    Result r = build("-q " + c.langs);
    EXPECT_EQ(r.status, c.status) << c.langs;
    EXPECT_TRUE(contains(r.err, c.message)) << r.err;
    EXPECT_EQ(exists(package), c.status == 0) << c.langs;
  }

  // Warnings: a description document not in the package, or not starting
  // with "/", and a package not named plom8.tpk. The package is still written.
  const struct {
    std::string args;
    std::string to;
    std::vector<std::string> warnings;
  } warned[] = {
      {"--lang en:P:V:/docs/readme.html --lang 'ru:P:V:\\docs\\readme.html'", "plom8.tpk", {}},
      {"--lang en:P:V:/docs/missing.html",
       "plom8.tpk",
       {"description document \"/docs/missing.html\" of language \"en\" is not in the package"}},
      {"--lang en:P:V:docs/readme.html",
       "plom8.tpk",
       {"description document \"docs/readme.html\" of language \"en\" does not start with \"/\"; "
        "the installer appends it to the template directory as it is"}},
      {"--docref /nothing.pdf",
       "plom8.tpk",
       {"description document \"/nothing.pdf\" of language \"en\" is not in the package"}},
      {"--lang en:P:V:",
       "kit.tpk",
       {"the package is named kit.tpk; the installer looks for plom8.tpk (rename it in the kit)"}},
  };
  for (const auto& c : warned) {
    Result r = build("-q " + c.args, c.to);
    EXPECT_EQ(r.status, 0) << c.args << r.err;
    EXPECT_TRUE(exists(out / c.to));
    std::string expected;
    for (const std::string& w : c.warnings) expected += "tpk-build: warning: " + w + "\n";
    EXPECT_EQ(r.err, expected) << c.args;
  }

  // The summary line on standard output, with the real compressed size.
  Result r = build("--level 9");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "tpk-build: " + package + ": 2 files, 5014 bytes, " +
                       std::to_string(std::filesystem::file_size(package)) + " bytes compressed\n");
}

TEST(TpkBuildTest, WarnsOfUnusedExcludesAndPackedLeftovers) {
  TempDir tree, out;
  for (const char* rel : {".git/HEAD", ".git/objects/ab", "sub/.svn/entries", "sub/.git", "a.txt",
                          "a.txt~", "sub/b~", ".#a.txt", "sub/.b.swp", "docs/x.html"})
    put(tree / rel, rel);
  const struct {
    std::string args;
    std::vector<std::string> warnings;  // in order, each a whole line after "warning: "
  } cases[] = {
      {"",
       {"the version-control folder .git/ is packed (2 files); leave it out with --exclude '.git'",
        "the version-control folder sub/.svn/ is packed (1 file); leave it out with --exclude "
        "'sub/.svn'",
        "editor leftovers are packed: a.txt~, sub/b~; leave them out with --exclude '*~'",
        "editor leftovers are packed: .#a.txt; leave them out with --exclude '.#*'",
        "editor leftovers are packed: sub/.b.swp; leave them out with --exclude '*.swp'"}},
      // Patterns that match nothing are named; "docs/" never matches a folder.
      {"--exclude .git --exclude '*/.svn' --exclude '*~' --exclude '.#*' --exclude '*.swp' "
       "--exclude reports --exclude docs/",
       {"--exclude 'reports' matched nothing",
        "--exclude 'docs/' matched nothing (a folder is matched by its name: --exclude 'docs')"}},
      {"--exclude .git --exclude sub --exclude '*~' --exclude '.#*'", {}},
  };
  for (const auto& c : cases) {
    // -q keeps the summary quiet, not the warnings.
    Result r = run(kBuild + " " + q(tree.path()) + " -o " + q(out / "plom8.tpk") + " -q " + c.args);
    EXPECT_EQ(r.status, 0) << c.args << r.err;
    std::string expected;
    for (const std::string& w : c.warnings) expected += "tpk-build: warning: " + w + "\n";
    EXPECT_EQ(r.err, expected) << c.args;
    EXPECT_EQ(r.out, "");
  }
}
