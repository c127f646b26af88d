// libFuzzer entry: the working-file catalogue reader when FUZZ_CATALOGUE is
// 1, else the two inflate engines against each other.
#include "fuzz_bodies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  unsigned verdict;
  abort_if(FUZZ_CATALOGUE ? catalogue_invariant_broken(data, size)
                          : inflate_invariant_broken(data, size, &verdict));
  return 0;
}
