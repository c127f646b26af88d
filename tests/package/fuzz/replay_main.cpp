// Replays fuzzing inputs: every file of each --catalogue directory through
// the catalogue reader, every file of each --inflate directory through both
// inflate engines. A broken invariant aborts; so does a sanitizer finding.
#include <dirent.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_bodies.h"

namespace {

std::vector<std::string> files_in(const std::string& dir) {
  std::vector<std::string> out;
  if (DIR* d = opendir(dir.c_str())) {
    while (dirent* e = readdir(d))
      if (e->d_name[0] != '.') out.push_back(dir + "/" + e->d_name);
    closedir(d);
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i + 1 < argc; i += 2) {
    bool catalogue = std::strcmp(argv[i], "--catalogue") == 0;
    if (!catalogue && std::strcmp(argv[i], "--inflate") != 0) {
      std::fprintf(stderr, "usage: package_fuzz_replay (--catalogue|--inflate DIR)...\n");
      return 2;
    }
    for (const std::string& path : files_in(argv[i + 1])) {
      std::ifstream in(path, std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                 std::istreambuf_iterator<char>());
      if (catalogue)
        fuzz_catalogue_input(bytes.data(), bytes.size());
      else
        fuzz_inflate_input(bytes.data(), bytes.size());
      ++count;
    }
  }
  std::printf("replayed %zu inputs\n", count);
  return count == 0 ? 1 : 0;
}
