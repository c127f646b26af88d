// libFuzzer entry: the two inflate engines against each other.
#include "fuzz_bodies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  unsigned verdict;
  abort_if(inflate_invariant_broken(data, size, &verdict));
  return 0;
}
