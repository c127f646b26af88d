// libFuzzer entry: the two inflate engines against each other.
#include "fuzz_bodies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_inflate_input(data, size);
  return 0;
}
