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

// Each update i is (i, a text made from i, i % 101): a mixed read shows as a
// mismatch.
TEST(InstallProcessDataTest, ReaderNeverSeesAMixedTriple) {
  auto message_for = [](unsigned i) {
    return std::u16string(1 + i % 700, char16_t(u'a' + i % 26)) + w("#" + std::to_string(i));
  };
  InstallProcessData data;
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
    if (state != 0 && (message != message_for(state) || percent != int(state % 101))) ++mixed;
  }
  writer.join();
  EXPECT_EQ(mixed, 0u) << "of " << reads << " reads";
}

// The worker repeats an installer run while the step asks for it; stop()
// during the second run lets that run finish, and no third one begins.
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
