// libFuzzer entry: the working-file catalogue reader.
#include "fuzz_bodies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  abort_if(catalogue_invariant_broken(data, size));
  return 0;
}
