// The worker thread: stop() lets the run under way finish and starts no other.
#include "install/install_thread.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "install/installer.h"
#include "package_fixture.h"

using namespace installtest;

namespace {

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
