// tpk-list as an administrator runs it: the plan against an installed folder
// and the machine-readable listing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "package/package_test_util.h"
#include "support/test_support.h"
#include "tool_run.h"

using namespace testsupport;
using namespace tooltest;

namespace {

std::string hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char c : bytes) out += {kDigits[c >> 4], kDigits[c & 15]};
  return out;
}

}  // namespace

TEST(TpkListTest, PlanAgainstAnInstalledFolderFollowsTheHundredNanosecondRule) {
  TempDir tree, installed, out;
  const int64_t kSeconds = 1600000000;
  const long kNanos = 500;  // the package time: tick ...5 of its second
  const struct {
    std::string name;
    const char* action;
  } entries[] = {
      {"new.txt", "new"},
      {"sub/deep/new2.txt", "new"},
      {"older.txt", "replace"},        // installed 100 ns earlier
      {"justolder.txt", "replace"},    // 1 ns earlier: the tick before
      {"link.txt", "replace"},         // a link to an older file: its target's time counts
      {"sametick.txt", "keep"},        // 50 ns later: the same tick
      {"newer.txt", "keep"},           // 100 ns later
      {"isdir", "conflict"},           // a directory stands there
      {"file/inner.txt", "conflict"},  // a file stands where a folder is needed
  };
  for (const auto& e : entries) put(tree / e.name, "package copy", kSeconds, kNanos);
  put(installed / "older.txt", "old", kSeconds, kNanos - 100);
  put(installed / "justolder.txt", "old", kSeconds, kNanos - 1);
  put(installed / "real.txt", "old", kSeconds - 1, 0);
  ASSERT_EQ(symlink("real.txt", (installed / "link.txt").c_str()), 0);
  put(installed / "sametick.txt", "same", kSeconds, kNanos + 50);
  put(installed / "newer.txt", "newer", kSeconds, kNanos + 100);
  std::filesystem::create_directories(installed / "isdir/inside");
  put(installed / "file", "a file", kSeconds, 0);

  const std::string package = out / "plom8.tpk";
  ASSERT_EQ(run(kBuild + " " + q(tree.path()) + " -o " + q(package) + " -q").status, 0);
  const Snapshot before = snapshot(installed.path());
  // A conflict means the installation would fail: exit status 3, plan printed.
  Result r = run(kList + " --against " + q(installed.path()) + " " + q(package));
  EXPECT_EQ(r.status, 3) << r.err;

  // The lines in catalogue order (byte order of the names), then the counts.
  std::vector<std::pair<std::string, std::string>> sorted;
  for (const auto& e : entries) sorted.push_back({e.name, e.action});
  std::sort(sorted.begin(), sorted.end());
  std::string expected;
  for (const auto& [name, action] : sorted) {
    std::string word = action;
    expected += word + std::string(9 - word.size(), ' ') + name + "\n";
  }
  expected += "9 entries: 2 new, 3 replace, 2 keep, 2 conflict\n";
  EXPECT_EQ(r.out, expected);
  EXPECT_EQ(snapshot(installed.path()), before);

  // Wrong command lines.
  for (const char* args :
       {"--against x", "--nope x.tpk", "a.tpk b.tpk", "--against x --proposed a.tpk"})
    EXPECT_EQ(run(kList + " " + args).status, 2) << args;
}

TEST(TpkListTest, JsonListingKeepsEveryNameExactly) {
  TempDir tree, out;
  // Names a JSON writer must escape, and bytes that are not UTF-8 at all.
  const std::vector<std::string> names = {
      "plain.txt",       "quote\"and\\back", "tab\there",
      "new\nline",       "bad\xFF\xFE.bin",  "\xC3\xBC/\xE5\x90\x8D\xF0\x9F\x98\x80",
      "ctl\x01\x1F\x7F", "\xED\xA0\x80lone"};
  for (size_t i = 0; i < names.size(); ++i)
    put(tree / names[i], std::string(i, 'x'), 1500000000 + int64_t(i), long(i) * 100);
  std::vector<std::string> sorted = names;
  std::sort(sorted.begin(), sorted.end());

  const std::string package = out / "plom8.tpk";
  ASSERT_EQ(run(kBuild + " " + q(tree.path()) + " -o " + q(package) + " -q " + "--lang " +
                q("ru:Шаблоны \"A\":V\\x\ty:/d"))
                .status,
            0);
  // Valid JSON (python's parser refuses raw control characters), and every
  // name comes back to its bytes through the surrogate escapes.
  const std::string script =
      "import json,sys\n"
      "d=json.load(sys.stdin)\n"
      "for f in d['files']: print(f['name'].encode('utf-8','surrogateescape').hex(), f['size'], "
      "f['filetime'])\n"
      "for l in d['languages']: print(l['code'], l['title1'].encode().hex(), "
      "l['title2'].encode().hex(), l['description'])\n"
      "print(d['header_kind'], d['compressed_bytes'], d['end_marker'], "
      "d['package'].encode('utf-8','surrogateescape').decode('utf-8','replace'))\n";
  write_file(out / "check.py", script);
  Result r =
      run(kList + " --json " + q(package) + " | " + q(PYTHON_EXE) + " " + q(out / "check.py"));
  ASSERT_EQ(r.status, 0) << r.err;
  std::string expected;
  for (const std::string& name : sorted) {
    const size_t i = size_t(std::find(names.begin(), names.end(), name) - names.begin());
    expected += hex(name) + " " + std::to_string(i) + " " +
                std::to_string((uint64_t(1500000000 + i) + 11644473600ULL) * 10000000ULL + i) +
                "\n";
  }
  expected += "ru " + hex("Шаблоны \"A\"") + " " + hex("V\\x\ty") + " /d\n";
  expected +=
      "1 " + std::to_string(std::filesystem::file_size(package)) + " True " + package + "\n";
  EXPECT_EQ(r.out, expected);
}

TEST(TpkListTest, ProposedPlanFollowsTheStarterConfiguration) {
  TempDir tree, out;
  put(tree / "a.txt", "package copy", 1600000000);
  const std::string package = out / "plom8.tpk";
  ASSERT_EQ(run(kBuild + " " + q(tree.path()) + " -o " + q(package) + " -q").status, 0);
  const std::string kOrdinary = ".Orvo/zelbrun/zelbrun.cfg", kBase = ".Orvo/zelbrunt/zelbrun.cfg";
  const struct {
    std::string file;     // starter file below HOME, "" for none
    std::string text;     // its lines; @ stands for HOME
    std::string starter;  // proposal, file, first as tpk-list tells them; @ for HOME
  } cases[] = {
      {"", "", "@/.plom8/Orvo/plom8//tmplts None None"},
      // The installer proposes the first listed directory where its probe file
      // can be made, and the probe goes to $TMPDIR (or /tmp) when the directory
      // does not exist: in effect the first one. "\" reads as "/"; the key's
      // case does not count.
      {kOrdinary, "configurationtemplateslocation=@\\t\nConfigurationTemplatesLocation=@/missing\n",
       "@/t @/" + kOrdinary + " @/t"},
      {kOrdinary, "ConfigurationTemplatesLocation=@/missing\nConfigurationTemplatesLocation=@/t\n",
       "@/missing @/" + kOrdinary + " @/missing"},
      {kBase, "ConfigurationTemplatesLocation=@/t\n", "@/t @/" + kBase + " @/t"},
      // A base file that lists nothing is not written.
      {kBase, "Other=1\n", "@/.plom8/Orvo/plom8//tmplts None None"},
  };
  for (const auto& c : cases) {
    TempDir home;
    auto at_home = [&](std::string text) {
      for (size_t p; (p = text.find('@')) != std::string::npos;) text.replace(p, 1, home.path());
      return text;
    };
    std::filesystem::create_directories(home / "t");
    put(home / "t/a.txt", "installed", 1500000000);
    if (!c.file.empty()) write_file(home / c.file, at_home(c.text));
    const Snapshot before = snapshot(home.path());
    Result r = run("HOME=" + q(home.path()) + " " + kList + " --json --proposed " + q(package) +
                   " | " + q(PYTHON_EXE) +
                   " -c 'import json,sys; d=json.load(sys.stdin); s=d[\"starter\"]; "
                   "print(s[\"proposal\"], s[\"file\"], s[\"first\"], d[\"against\"] == "
                   "s[\"proposal\"], d[\"files\"][0][\"action\"])'");
    const bool atT = c.starter.compare(0, 4, "@/t ") == 0;
    EXPECT_EQ(r.out, at_home(c.starter) + " True " + (atT ? "replace" : "new") + "\n") << c.text;
    EXPECT_EQ(snapshot(home.path()), before);
  }

  // The text plan names the directory first.
  TempDir home;
  const std::string list = "HOME=" + q(home.path()) + " " + kList + " --proposed " + q(package);
  Result r = run(list);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "directory: " + home / ".plom8/Orvo/plom8//tmplts" +
                       "\nnew      a.txt\n1 entries: 1 new, 0 replace, 0 keep, 0 conflict\n");
  // A URL listed first leaves no proposal: no plan against the working directory.
  write_file(home / kOrdinary, "ConfigurationTemplatesLocation=http://host/t\n");
  r = run(list);
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_TRUE(contains(r.err, "proposes no directory")) << r.err;
}

// A file whose contents do not match its record's check fails the listing, by
// name, and nothing is listed.
TEST(TpkListTest, ContentsThatDoNotMatchTheirCheckAreNamed) {
  TempDir dir;
  std::string working =
      pkgtest::working_file({{u"a", 1, std::string(70000, 'a')}, {u"z", 3, "zed"}}, true);
  working[working.size() - 100] ^= 1;  // inside the contents of "a"
  write_file(dir / "p.tpk", pkgtest::deflate_raw(working));
  Result r = run(kList + " " + q(dir / "p.tpk"));
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(contains(r.err, "the contents of a do not match its record")) << r.err;
  EXPECT_EQ(run(kList + " --json " + q(dir / "p.tpk")).out, "");
}
