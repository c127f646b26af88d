// The wizard tests link their own finishing pause: none, so that a run
// returns as soon as its success is published, unless a test holds it.
#pragma once

namespace uitest {

// While one exists, a run's finishing pause lasts until it goes: the worker
// is still busy after the success page, as in the program's one-second pause.
class HeldFinishingPause {
 public:
  HeldFinishingPause();
  ~HeldFinishingPause();  // a held pause ends
  HeldFinishingPause(const HeldFinishingPause&) = delete;
  HeldFinishingPause& operator=(const HeldFinishingPause&) = delete;
};

}  // namespace uitest
