// The shared state and the worker thread: a reader never sees a mixed state,
// and stop() lets the run under way finish.
#include "install/install_thread.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "install/installer.h"
#include "package_fixture.h"

using namespace installtest;

namespace {

// Update i is (i, phase i % 5, text i % 997, i % 101); a mixed read shows as a mismatch.
// The texts are made in advance so that the writer is fast and often lands
// between the reader's field reads.
TEST(InstallProcessDataTest, ReaderNeverSeesAMixedTriple) {
  std::vector<std::u16string> texts;
  for (unsigned i = 0; i < 997; ++i)
    texts.push_back(std::u16string(20 + i % 300, char16_t(u'a' + i % 26)) + w(std::to_string(i)));
  InstallProcessData data;
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    for (unsigned i = 1; !stop; ++i)
      data.setInstallState(i, RunPhase(i % 5), texts[i % 997], int(i % 101));
  });
  unsigned mixed = 0;
  for (unsigned seen = 0; seen < 300000;) {  // reads of a written state
    unsigned state;
    RunPhase phase;
    std::u16string message;
    int percent;
    data.getInstallState(state, phase, message, percent);
    if (state == 0) continue;
    ++seen;
    if (phase != RunPhase(state % 5) || message != texts[state % 997] ||
        percent != int(state % 101))
      ++mixed;
  }
  stop = true;
  writer.join();
  EXPECT_EQ(mixed, 0u);
}

TEST(InstallThreadTest, StopDuringARunLetsItFinishAndStartsNoOther) {
  struct Wizard {
    InstallProcessData data;
    PackageReader reader;
    std::atomic<int> runs{0};
    unsigned result = 1;
    std::atomic<bool> held{false};
    std::promise<void> started, resume;
    std::shared_future<void> resumed;
  } wz;
  Sandbox box;
  box.buildPackage(
      wz.reader, {{"a.txt", "a", file_time(1600000000)}, {"b\\c.txt", "c", file_time(1600000000)}});
  wz.resumed = wz.resume.get_future().share();
  // The first state of the second run holds it until the test has called stop().
  wz.data.setWakeup(
      [](void* self) {
        auto* z = static_cast<Wizard*>(self);
        if (z->runs != 1 || z->held.exchange(true)) return;
        z->started.set_value();
        z->resumed.wait();
      },
      &wz);
  wz.data.init(&wz.reader, box.targetDir());
  std::future<void> started = wz.started.get_future();
  InstallThread thread;
  ASSERT_EQ(thread.start(
                [](void* self) {
                  auto* z = static_cast<Wizard*>(self);
                  z->result = Installer(0).run(&z->data);
                  return ++z->runs < 3;
                },
                &wz),
            0);
  started.wait();
  EXPECT_TRUE(thread.isRunning());
  EXPECT_EQ(thread.start([](void*) { return false; }, nullptr), EBUSY);
  thread.stop();
  wz.resume.set_value();
  thread.join();

  EXPECT_EQ(wz.runs, 2);
  EXPECT_EQ(wz.result, 0u);
  EXPECT_EQ(read_file(box.target() + "/b/c.txt"), "c");
}

}  // namespace
