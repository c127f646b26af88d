// The installation session as both front ends drive it: how a run's last
// state is classified, and the outcome of each way a session can end,
// with what it leaves in the target and in the starter file.
#include "install/session.h"

#include <gtest/gtest.h>

#include "install/package_fixture.h"

namespace installtest {
namespace {

TEST(ClassifyRun, LastStateDecides) {
  struct Case {
    unsigned state;
    int percent;
    OutcomeKind kind;
  } cases[] = {
      {0, 100, OutcomeKind::kInstalled},
      {0, 99, OutcomeKind::kFailed},
      {ERROR_CANCELLED, 100, OutcomeKind::kCancelled},
      {ERROR_PATH_NOT_FOUND, 100, OutcomeKind::kFailed},
  };
  for (const Case& c : cases)
    EXPECT_EQ(classify_run(c.state, c.percent), c.kind) << c.state << " " << c.percent;
}

class SessionTest : public ::testing::Test {
 protected:
  SessionTest() : m_home("HOME", m_box.root() + "/home") {
    write_file(cfg(), "ConfigurationTemplatesLocation=/elsewhere\n");
    m_starter = read_starter_state();
    m_box.buildPackage(m_package, {{"a.txt", "alpha", file_time(1700000000)},
                                   {"sub\\b.txt", "beta", file_time(1700000000)}});
  }
  std::string cfg() const { return m_box.root() + "/home/.Orvo/zelbrun/zelbrun.cfg"; }

  // Runs a session into `target` to its end, as the run without a display does.
  const InstallOutcome& run(InstallSession& session, const std::u16string& target) {
    EXPECT_TRUE(session.start(target));
    session.waitSettled();
    session.waitReturned();
    return session.finish();
  }

  Sandbox m_box;
  ScopedEnv m_home;
  PackageReader m_package;
  StarterState m_starter;
};

TEST_F(SessionTest, EveryWayASessionEnds) {
  const Snapshot before = snapshot(m_box.target());
  {  // An empty target: refused before anything is touched.
    InstallSession session(m_package, m_starter);
    EXPECT_FALSE(session.start(u""));
    EXPECT_EQ(session.outcome().kind, OutcomeKind::kFailed);
    EXPECT_EQ(session.outcome().status.code, unsigned(ERROR_PATH_NOT_FOUND));
    EXPECT_TRUE(session.returned());
  }
  {  // Cancelled after the first file: rolled back, the starter file untouched.
    InstallSession session(m_package, m_starter);
    session.setWakeup([](void* s) { static_cast<InstallSession*>(s)->cancel(); }, &session);
    const InstallOutcome& outcome = run(session, m_box.targetDir());
    EXPECT_EQ(outcome.kind, OutcomeKind::kCancelled);
    EXPECT_EQ(session.progress().phase, RunPhase::kCancelled);
  }
  EXPECT_EQ(snapshot_difference(before, snapshot(m_box.target())), "");
  EXPECT_EQ(read_file(cfg()), "ConfigurationTemplatesLocation=/elsewhere\n");
  EXPECT_TRUE(snapshot(m_box.tmp()).empty());

  {  // Installed: the target goes to the front of the starter's list.
    InstallSession session(m_package, m_starter);
    const InstallOutcome& outcome = run(session, m_box.targetDir());
    EXPECT_EQ(outcome.kind, OutcomeKind::kInstalled);
    EXPECT_EQ(read_file(m_box.target() + "/sub/b.txt"), "beta");
    EXPECT_EQ(read_file(cfg()), "ConfigurationTemplatesLocation=" + m_box.target() +
                                    "\nConfigurationTemplatesLocation=/elsewhere\n");
  }
}

}  // namespace
}  // namespace installtest
