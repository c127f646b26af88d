// The shared state and the worker thread: locking, the cancel flag, stop and
// the worker's lifecycle.
#include "install/install_thread.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "app/resources.h"
#include "compat/text.h"
#include "install/install_process_data.h"
#include "install/installer.h"
#include "package_fixture.h"

using namespace testsupport;
using namespace installtest;

namespace {

TEST(InstallProcessDataTest, InitPreparesARunAndEndsTheDirectoryWithASeparator) {
  const std::pair<std::u16string, std::u16string> cases[] = {
      {u"", u""},
      {u"/t", u"/t/"},
      {u"/t/", u"/t/"},
      {u"C:\\t\\", u"C:\\t\\"},
      {u"C:\\t", u"C:\\t/"},
  };
  InstallProcessData data;
  PackageReader reader;
  for (const auto& [given, stored] : cases) {
    data.setInstallState(5, u"kept", 40);
    data.setCancel(true);
    data.init(&reader, given);
    PackageReader* got = nullptr;
    std::u16string dir;
    data.get(got, dir);
    EXPECT_EQ(got, &reader);
    EXPECT_EQ(dir, stored);
    unsigned state = 1;
    std::u16string message;
    int percent = 1;
    data.getInstallState(state, message, percent);
    EXPECT_EQ(state, 0u);
    EXPECT_EQ(message, u"kept");
    EXPECT_EQ(percent, 0);
    EXPECT_FALSE(data.isCancelled());
  }
}

// Each update i is (i, a text made from i, i % 101): a mixed read shows as a
// mismatch. The wakeup hook reads the state too, which would deadlock if it
// were called under the lock.
TEST(InstallProcessDataTest, ReaderNeverSeesAMixedTriple) {
  auto message_for = [](unsigned i) {
    return std::u16string(1 + i % 700, char16_t(u'a' + i % 26)) + u"#" +
           widen_lib(std::to_string(i));
  };
  InstallProcessData data;
  struct Hook {
    InstallProcessData* data;
    std::atomic<unsigned> calls{0};
  } hook{&data};
  data.setWakeup(
      [](void* context) {
        auto* h = static_cast<Hook*>(context);
        unsigned s;
        std::u16string m;
        int p;
        h->data->getInstallState(s, m, p);
        ++h->calls;
      },
      &hook);

  constexpr unsigned kUpdates = 20000;
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (unsigned i = 1; i <= kUpdates; ++i) data.setInstallState(i, message_for(i), int(i % 101));
    done = true;
  });
  unsigned mixed = 0, reads = 0;
  while (!done || reads == 0) {
    unsigned state;
    std::u16string message;
    int percent;
    data.getInstallState(state, message, percent);
    ++reads;
    if (state == 0) continue;  // not written yet
    if (message != message_for(state) || percent != int(state % 101)) ++mixed;
  }
  writer.join();
  EXPECT_EQ(mixed, 0u) << "of " << reads << " reads";
  EXPECT_EQ(hook.calls, kUpdates);
}

TEST(InstallThreadTest, WorkerRepeatsItsStepUntilStoppedAndIsJoined) {
  struct Counter {
    std::atomic<int> steps{0};
  } counter;
  InstallThread thread;
  EXPECT_FALSE(thread.isRunning());
  ASSERT_EQ(thread.start(
                [](void* owner) {
                  ++static_cast<Counter*>(owner)->steps;
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
                  return true;
                },
                &counter),
            0);
  while (counter.steps < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_TRUE(thread.isRunning());
  EXPECT_EQ(thread.start([](void*) { return false; }, nullptr), EBUSY);
  thread.stop();
  thread.join();
  EXPECT_FALSE(thread.isRunning());
  const int steps = counter.steps;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(counter.steps, steps);

  // The destructor waits for a worker still running.
  std::atomic<bool> finished{false};
  {
    InstallThread scoped;
    ASSERT_EQ(scoped.start(
                  [](void* owner) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
                    *static_cast<std::atomic<bool>*>(owner) = true;
                    return false;
                  },
                  &finished),
              0);
  }
  EXPECT_TRUE(finished);
}

// What the GUI does: init, start the worker on one installer run, and stop()
// while that run is under way. The run goes on to its own end.
struct Wizard {
  InstallProcessData data;
  PackageReader reader;
  std::atomic<int> runs{0};
  std::atomic<bool> started{false};
  std::atomic<bool> stopRequested{false};
  unsigned result = 1;

  static bool step(void* self) {
    auto* w = static_cast<Wizard*>(self);
    ++w->runs;
    Installer installer(0);
    w->result = installer.run(&w->data);
    return false;
  }
  // First state published: the run is under way; hold it until stop() was called.
  static void wakeup(void* self) {
    auto* w = static_cast<Wizard*>(self);
    if (w->started.exchange(true)) return;
    while (!w->stopRequested) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
};

TEST(InstallThreadTest, StopDuringARunLeavesItsOutcomeUnchanged) {
  Sandbox box;
  Wizard wizard;
  box.buildPackage(wizard.reader, {{"a.txt", "a", file_time(1600000000)},
                                   {"b\\c.txt", "c", file_time(1600000000)}});
  wizard.data.setWakeup(&Wizard::wakeup, &wizard);
  wizard.data.init(&wizard.reader, box.targetDir());
  InstallThread thread;
  ASSERT_EQ(thread.start(&Wizard::step, &wizard), 0);
  while (!wizard.started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  thread.stop();
  wizard.stopRequested = true;
  thread.join();

  EXPECT_EQ(wizard.runs, 1);
  EXPECT_EQ(wizard.result, 0u);
  unsigned state;
  std::u16string message;
  int percent;
  wizard.data.getInstallState(state, message, percent);
  EXPECT_EQ(state, 0u);
  EXPECT_EQ(message, LoadResString("IDS_INSTALL_FINISH"));
  EXPECT_EQ(percent, 100);
  EXPECT_EQ(read_file(box.target() + "/b/c.txt"), "c");
}

}  // namespace
