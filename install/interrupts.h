// SIGINT, SIGTERM and SIGHUP never kill the installer halfway through a
// change: from the first instruction on they are blocked in every thread and
// taken by a thread of their own, which turns them into requests that the
// current phase of the program answers (stop unpacking, cancel the run,
// close the window). A rollback under way is never cut short.
#pragma once

#include <atomic>

// Blocks the three signals in the calling thread (and so in every thread
// created after it) and starts the watcher. Call first thing in main, before
// any other thread exists. Later calls do nothing.
void watch_interrupts();

// Set once one of the signals has arrived; never cleared.
const std::atomic<bool>& interrupt_flag();
inline bool interrupted() { return interrupt_flag().load(); }

// What to do about a signal in the current phase; runs on the watcher thread
// (or at once on the caller's, when a signal came before the handler was
// set). Null leaves only the flag. The handler and its context must stay
// valid until they are replaced.
using InterruptHandler = void (*)(void* context);
void on_interrupt(InterruptHandler handler, void* context);

// Sets `handler` for the lifetime of the object, then restores none.
class InterruptScope {
 public:
  InterruptScope(InterruptHandler handler, void* context) { on_interrupt(handler, context); }
  ~InterruptScope() { on_interrupt(nullptr, nullptr); }
  InterruptScope(const InterruptScope&) = delete;
  InterruptScope& operator=(const InterruptScope&) = delete;
};
