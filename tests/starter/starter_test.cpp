#include "starter/starter.h"

#include <gtest/gtest.h>

#include "starter/config_file_io.h"
#include "starter_test_env.h"

using namespace startertest;
using testsupport::read_file;
using testsupport::snapshot;

namespace {

const std::string kLocal = ".Orvo/zelbrun/zelbrun.cfg";
const std::string kLocalBase = ".Orvo/zelbrunt/zelbrun.cfg";
const std::string kShared = ".plom8//.Orvo/zelbrun/zelbrun.cfg";
const std::string kKey = "ConfigurationTemplatesLocation=";

class StarterTest : public PrivateHomeTest {
 protected:
  std::vector<std::string> list(bool localFirst, bool base) {
    std::vector<std::u16string> out;
    get_tmplts_list(out, localFirst, base);
    return narrow_all(out);
  }
};

TEST_F(StarterTest, SearchOrderFollowsTheFlags) {
  put(kLocal, kKey + "/t/a\n" + kKey + "/T/A\n" + kKey + "/t/l\nOther=1\n");
  put(kShared, kKey + "/t/b\n" + kKey + "/T/A\n");
  put(kLocalBase, kKey + "/t/c\n");

  EXPECT_EQ(list(true, false), (std::vector<std::string>{"/t/a", "/t/l", "/t/b"}));
  EXPECT_EQ(list(false, false), (std::vector<std::string>{"/t/b", "/T/A", "/t/l"}));
  // In base mode the ordinary per-user file stands in for the shared one.
  EXPECT_EQ(list(true, true), (std::vector<std::string>{"/t/c", "/t/a", "/t/l"}));
  EXPECT_EQ(list(false, true), (std::vector<std::string>{"/t/a", "/t/l", "/t/c"}));

  // The never-loaded third configuration comes first when the per-user one
  // does not, so stopping after two then leaves the per-user file out.
  struct Case {
    bool localFirst, stopAfterTwo;
    std::vector<std::string> expected;
  } cases[] = {
      {true, true, {"/t/a", "/t/l", "/t/b"}},
      {true, false, {"/t/a", "/t/l", "/t/b"}},
      {false, true, {"/t/b", "/T/A"}},
      {false, false, {"/t/b", "/T/A", "/t/l"}},
  };
  Starter starter(false);
  starter.loadConfig();
  for (const Case& c : cases) {
    // What the list held before is kept and does not count as already taken.
    std::vector<std::u16string> out{u"/T/B"};
    starter.getConfigFilesValues(c.localFirst, kConfigFileFieldTemplatesLocation, out,
                                 c.stopAfterTwo);
    std::vector<std::string> expected{"/T/B"};
    expected.insert(expected.end(), c.expected.begin(), c.expected.end());
    EXPECT_EQ(narrow_all(out), expected) << c.localFirst << c.stopAfterTwo;
  }
}

TEST_F(StarterTest, StoredBackslashesReadAsSlashes) {
  put(kLocal, kKey + "C:\\x\\y\n" + kKey + "\\\\srv\\share\\\n" + kKey + "C:/x/y\\\n");
  // C:\x\y and C:/x/y\ differ in the trailing separator only, so both stay.
  EXPECT_EQ(list(true, false), (std::vector<std::string>{"C:/x/y", "//srv/share/", "C:/x/y/"}));
}

TEST_F(StarterTest, LaterDuplicatesAreRemoved) {
  struct Case {
    std::vector<std::string> in, out;
  } cases[] = {
      {{"/t/a", "/t/a/"}, {"/t/a", "/t/a/"}},
      {{"/t/a", "/t/a\\"}, {"/t/a"}},
      {{"/t/a\\", "/t/a"}, {"/t/a\\"}},
      {{"/t/a", "/T/A", "/t/b", "/t/A"}, {"/t/a", "/t/b"}},
      {{"/t/a/", "/T/A/", "/t/a//"}, {"/t/a/", "/t/a//"}},
      {{"", "x", "", "X"}, {"", "x"}},
      {{"/Ж", "/ж"}, {"/Ж", "/ж"}},
  };
  for (const Case& c : cases) {
    std::vector<std::u16string> list = widen_all(c.in);
    Starter::removePathDuplicates(list);
    EXPECT_EQ(narrow_all(list), c.out) << c.in.size();
  }
}

TEST_F(StarterTest, SettingWritesOnlyThePerUserFile) {
  put(kShared, kKey + "/shared\n");
  testsupport::Snapshot sharedBefore = snapshot(home(".plom8"));

  // The directory is created when the file is missing.
  set_tmplts_list(widen_all({"/t/a", "/t/a/", "/T/A"}), false);
  EXPECT_EQ(read_file(home(kLocal)), kKey + "/t/a\n" + kKey + "/t/a/\n");
  EXPECT_EQ(snapshot(home(".plom8")), sharedBefore);

  set_tmplts_list(widen_all({"/b"}), true);
  EXPECT_EQ(read_file(home(kLocalBase)), kKey + "/b\n");
  EXPECT_EQ(read_file(home(kLocal)), kKey + "/t/a\n" + kKey + "/t/a/\n");
  EXPECT_EQ(snapshot(home(".plom8")), sharedBefore);

  // An empty list drops the key's lines and keeps the other keys.
  put(kLocal, "First=1\n" + kKey + "/t/a\nLast=2\n");
  set_tmplts_list({}, false);
  EXPECT_EQ(read_file(home(kLocal)), "First=1\nLast=2\n");
}

TEST_F(StarterTest, OtherContentsSurviveARewrite) {
  // A per-user file as the starter leaves it: other keys, Cyrillic paths, a
  // long line, a stray Latin-1 byte and a character across a block boundary.
  std::string before = "DefaultVersion=8.2\nInstalledLocation=/opt/Орво/Плом 8/\n";
  before += "CommonInfoBases=" + std::string(2990, 'b') + "\n";
  before += "DistributiveLocation=/home/u/Загрузки/caf\xE9\n";
  const std::string oldLines = kKey + "/old/Шаблоны\n" + kKey + "/old/two\n";
  before += oldLines;
  std::string pad = "InstallComponents=";
  pad.append(4095 - before.size() - pad.size(), 'c');
  before += pad + "\xD0\x96\n";  // Ж from the last byte of the fourth block on
  before += "CommonCfgLocation=/srv/общие\n";
  ASSERT_EQ(before.substr(4095, 2), "\xD0\x96");
  put(kLocal, before);

  set_tmplts_list(widen_all({"/new/Шаблоны", "/old/Шаблоны", "/old/two"}), false);
  std::string expected = before;
  expected.replace(expected.find(oldLines), oldLines.size(), kKey + "/new/Шаблоны\n" + oldLines);
  EXPECT_EQ(read_file(home(kLocal)), expected);
}

}  // namespace
