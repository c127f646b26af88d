// bench_load: loads a package the way the installer does and reports how
// long that took (a driver for bench/load/).
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "compat/text.h"
#include "package/lz_compressor.h"
#include "package/package_loader.h"
#include "tools/monotonic_clock.h"

namespace {

const char kUsage[] =
    "Usage: bench_load PACKAGE [--engine zlib|isa-l] [--chunk BYTES]\n"
    "                  [--unpack-only | --decode-only [--repeat N]]\n"
    "\n"
    "Loads PACKAGE with load_package (space check, inflating into a working\n"
    "file in $TMPDIR, reading the catalogue) and prints one line:\n"
    "  <seconds> <files> <engine> <chunk>\n"
    "The working file is deleted before exit. --unpack-only times only the\n"
    "inflation into the working file. --decode-only times only decoding the\n"
    "stream (already in memory) into nothing, N times, one line per run.\n"
    "Exit status 1 when loading fails.\n";

class NullSink : public InflateSink {
 public:
  void write(const uint8_t* data, size_t size) override {
    last = data[size - 1];
    total += size;
  }
  uint64_t total = 0;
  uint8_t last = 0;
};

// Decodes the mapped package `repeat` times into nothing, touching every
// page first so that only decoding is timed.
int decode_only(const std::string& package, const LoadOptions& options, int repeat) {
  int fd = open(package.c_str(), O_RDONLY);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0 || st.st_size == 0) return 1;
  size_t size = size_t(st.st_size);
  void* map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
  close(fd);
  if (map == MAP_FAILED) return 1;
  for (int i = 0; i < repeat; ++i) {
    NullSink sink;
    double start = now_seconds();
    InflateOutcome outcome = inflate_stream(static_cast<const uint8_t*>(map), size, sink,
                                            options.engine, options.chunkSize);
    double elapsed = now_seconds() - start;
    if (outcome.code != 0) return 1;
    std::printf("%.6f %llu %s %zu\n", elapsed, (unsigned long long)sink.total,
                inflate_engine_name(options.engine), options.chunkSize);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string package;
  LoadOptions options;
  bool unpackOnly = false;
  bool decodeOnly = false;
  int repeat = 1;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--engine" && i + 1 < argc) {
      std::string name = argv[++i];
      if (name == "zlib") {
        options.engine = InflateEngine::kZlib;
      } else if (name == "isa-l" || name == "isal") {
        options.engine = InflateEngine::kIsal;
        if (!inflate_engine_available(options.engine)) {
          std::fprintf(stderr, "bench_load: isa-l is not installed\n");
          return 2;
        }
      } else {
        std::fprintf(stderr, "bench_load: unknown engine %s\n", name.c_str());
        return 2;
      }
    } else if (arg == "--chunk" && i + 1 < argc) {
      options.chunkSize = std::strtoull(argv[++i], nullptr, 10);
      if (options.chunkSize == 0) options.chunkSize = LZCompressor::kBufferSize;
    } else if (arg == "--decode-only") {
      decodeOnly = true;
    } else if (arg == "--repeat" && i + 1 < argc) {
      repeat = std::max(1, std::atoi(argv[++i]));
    } else if (arg == "--unpack-only") {
      unpackOnly = true;
    } else if (package.empty() && arg[0] != '-') {
      package = arg;
    } else {
      std::fputs(kUsage, stderr);
      return 2;
    }
  }
  if (package.empty()) {
    std::fputs(kUsage, stderr);
    return 2;
  }

  if (decodeOnly) return decode_only(package, options, repeat);

  size_t files = 0;
  double start = now_seconds();
  if (unpackOnly) {
    std::u16string dir, working;
    FileSystem::GetTempPath(dir);
    FileSystem::GetTempFileName(dir, u"kpt", working);
    unsigned code =
        LZCompressor::unpack(widen_lib(package), working, options.engine, options.chunkSize);
    double elapsed = now_seconds() - start;
    FileSystem::DeleteFile(working);
    if (code != 0) {
      std::fprintf(stderr, "bench_load: unpack failed with %u\n", code);
      return 1;
    }
    std::printf("%.6f 0 %s %zu\n", elapsed, inflate_engine_name(options.engine), options.chunkSize);
    return 0;
  }
  double elapsed;
  {
    PackageReader reader;
    const Status status = load_package(reader, widen_lib(package), options);
    elapsed = now_seconds() - start;
    if (!status.ok()) {
      std::fprintf(stderr, "bench_load: %s\n", describe(status).c_str());
      return 1;
    }
    files = reader.files.size();
  }
  std::printf("%.6f %zu %s %zu\n", elapsed, files, inflate_engine_name(options.engine),
              options.chunkSize);
  return 0;
}
