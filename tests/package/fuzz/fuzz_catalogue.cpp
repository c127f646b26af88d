// libFuzzer entry: the working-file catalogue reader.
#include "fuzz_bodies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_catalogue_input(data, size);
  return 0;
}
