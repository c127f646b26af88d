// Test programs that link slow_run.cpp make every published state of an
// installation run last a while, so that a test can act while it is under
// way. The program's own hook does nothing.
#pragma once

namespace testsupport {

// Milliseconds the worker waits after each published state, for the
// lifetime of the object.
class SlowRun {
 public:
  explicit SlowRun(unsigned milliseconds);
  ~SlowRun();
  SlowRun(const SlowRun&) = delete;
  SlowRun& operator=(const SlowRun&) = delete;
};

}  // namespace testsupport
