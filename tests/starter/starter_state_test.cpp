#include "starter/starter_state.h"

#include <gtest/gtest.h>

#include "starter_test_env.h"

using namespace startertest;
using testsupport::exists;
using testsupport::read_file;
using testsupport::snapshot;

namespace {

const std::string kLocal = ".Orvo/zelbrun/zelbrun.cfg";
const std::string kLocalBase = ".Orvo/zelbrunt/zelbrun.cfg";
const std::string kKey = "ConfigurationTemplatesLocation=";

using StarterStateTest = PrivateHomeTest;

TEST(CleanProposalTest, RemoteAndDecoratedProposals) {
  struct Case {
    std::u16string in, out;
  } cases[] = {
      {u"file:///opt/t", u"/opt/t"},
      {u"/a/file://b/file://c", u"/a/b/file://c"},
      {u"https://host/t", u""},
      {u"/x/http://y", u""},
      {u"ftp://host", u""},
      {u"file://https://x", u""},
      {u"HTTP://host", u"HTTP://host"},
      {u"/opt/t\r\n", u"/opt/t"},
      {u"/o\npt/\rt", u"/opt/t"},
      {u"file:///opt/t\r\n", u"/opt/t"},
      {u"/home/u/.plom8/Orvo/plom8//tmplts", u"/home/u/.plom8/Orvo/plom8//tmplts"},
      {u"", u""},
  };
  for (const Case& c : cases) EXPECT_EQ(clean_proposal(c.in), c.out) << narrow_lib(c.in);
}

TEST_F(StarterStateTest, NoConfigurationMeansNothingIsWritten) {
  StarterState state = read_starter_state();
  EXPECT_TRUE(state.templateDirs.empty());
  EXPECT_FALSE(state.writeOrdinary);
  EXPECT_FALSE(state.writeBase);
  EXPECT_EQ(narrow_lib(state.proposal), home(".plom8/Orvo/plom8//tmplts"));

  // A base file without template directories does not count either.
  put(kLocalBase, "DefaultVersion=8.2\n");
  state = read_starter_state();
  EXPECT_FALSE(state.writeOrdinary || state.writeBase);

  testsupport::Snapshot before = snapshot(m_home);
  EXPECT_EQ(record_template_dir(state, w("/t/new")), 0);
  EXPECT_EQ(narrow_all(state.templateDirs), std::vector<std::string>{"/t/new"});
  EXPECT_EQ(snapshot(m_home), before);
}

TEST_F(StarterStateTest, BaseListIsWrittenBackToTheBaseFile) {
  put(kLocalBase, kKey + "file:///opt/Шаблоны\r\n" + kKey + "/t/b\r\n");
  StarterState state = read_starter_state();
  EXPECT_EQ(narrow_all(state.templateDirs),
            (std::vector<std::string>{"file:///opt/Шаблоны\r", "/t/b\r"}));
  EXPECT_FALSE(state.writeOrdinary);
  EXPECT_TRUE(state.writeBase);
  EXPECT_EQ(state.proposal, u"/opt/Шаблоны");

  EXPECT_EQ(record_template_dir(state, w("/t/new/")), 0);
  EXPECT_EQ(read_file(home(kLocalBase)),
            kKey + "/t/new\n" + kKey + "file:///opt/Шаблоны\r\n" + kKey + "/t/b\r\n");
  EXPECT_FALSE(exists(home(kLocal)));
  EXPECT_FALSE(exists(home(".Orvo/zelbrun")));
}

TEST_F(StarterStateTest, OrdinaryFileIsWrittenWhenItExisted) {
  put(kLocal, "DefaultVersion=8.2\n");
  put(kLocalBase, kKey + "/t/base\n");
  StarterState state = read_starter_state();
  EXPECT_TRUE(state.templateDirs.empty());
  EXPECT_TRUE(state.writeOrdinary);
  EXPECT_FALSE(state.writeBase);
  EXPECT_EQ(narrow_lib(state.proposal), home(".plom8/Orvo/plom8//tmplts"));

  // One trailing separator goes; the list keeps no later duplicate.
  struct Step {
    std::string dir;
    std::string file;
  } steps[] = {
      {"/t/a/", kKey + "/t/a\n"},
      {"/t/b\\", kKey + "/t/b\n" + kKey + "/t/a\n"},
      {"/T/A", kKey + "/T/A\n" + kKey + "/t/b\n"},
      {"/t/c//", kKey + "/t/c/\n" + kKey + "/T/A\n" + kKey + "/t/b\n"},
  };
  for (const Step& step : steps) {
    EXPECT_EQ(record_template_dir(state, w(step.dir)), 0) << step.dir;
    EXPECT_EQ(read_file(home(kLocal)), "DefaultVersion=8.2\n" + step.file) << step.dir;
  }
  EXPECT_EQ(read_file(home(kLocalBase)), kKey + "/t/base\n");

  // Read back, the first entry is the proposal.
  state = read_starter_state();
  EXPECT_EQ(state.proposal, u"/t/c/");
}

TEST_F(StarterStateTest, FailedWriteIsReportedAndChangesNothing) {
  put(kLocal, kKey + "/t/a\n");
  StarterState state = read_starter_state();
  ASSERT_TRUE(state.writeOrdinary);
  // The file has become a directory since it was read.
  ASSERT_EQ(std::remove(home(kLocal).c_str()), 0);
  put(kLocal + "/inside", "x");
  testsupport::Snapshot before = snapshot(m_home);
  EXPECT_EQ(record_template_dir(state, w("/t/new")), 1);
  EXPECT_EQ(snapshot(m_home), before);
}

}  // namespace
