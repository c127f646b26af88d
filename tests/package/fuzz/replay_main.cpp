// Replays fuzzing inputs: every file of each --catalogue directory through
// the catalogue reader, every file of each --inflate directory through both
// inflate engines. A broken invariant aborts; so does a sanitizer finding.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_bodies.h"

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i + 1 < argc; i += 2) {
    bool catalogue = std::strcmp(argv[i], "--catalogue") == 0;
    if (!catalogue && std::strcmp(argv[i], "--inflate") != 0) return 2;
    std::error_code error;  // a missing folder holds no inputs
    for (const auto& entry : std::filesystem::directory_iterator(argv[i + 1], error)) {
      std::ifstream in(entry.path(), std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
      unsigned verdict;
      abort_if(catalogue ? catalogue_invariant_broken(bytes.data(), bytes.size())
                         : inflate_invariant_broken(bytes.data(), bytes.size(), &verdict));
      ++count;
    }
  }
  std::printf("replayed %zu inputs\n", count);
  return count == 0 ? 1 : 0;
}
