// Reads one starter configuration file a few times and writes it back once,
// printing the median read time, the write time and what was read:
//   starter_read FILE RUNS OUT_FILE
// Built by bench_starter.py against the current sources and, as the peer,
// against an earlier revision; only calls whose form both share are used.
#include <locale.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "compat/text.h"
#include "starter/config_file.h"
#include "starter/config_file_io.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s FILE RUNS OUT_FILE\n", argv[0]);
    return 2;
  }
  setlocale(LC_ALL, "");
  const std::u16string path = widen_lib(argv[1]);
  const int runs = std::max(1, std::atoi(argv[2]));
  std::vector<double> reads;
  size_t keys = 0, values = 0;
  double write = 0;
  for (int run = 0; run < runs; ++run) {
    ConfigFile config;
    auto start = std::chrono::steady_clock::now();
    read_config_file(path, config);
    reads.push_back(seconds_since(start));
    if (run == 0) {
      keys = config.entries().size();
      for (const ConfigFile::Entry& entry : config.entries()) values += entry.values.size();
      start = std::chrono::steady_clock::now();
      (void)write_config_file(widen_lib(argv[3]), config);
      write = seconds_since(start);
    }
  }
  std::sort(reads.begin(), reads.end());
  std::printf(
      "{\"read_median_s\": %.4f, \"read_min_s\": %.4f, \"read_max_s\": %.4f, "
      "\"write_s\": %.4f, \"keys\": %zu, \"values\": %zu}\n",
      reads[reads.size() / 2], reads.front(), reads.back(), write, keys, values);
  return 0;
}
