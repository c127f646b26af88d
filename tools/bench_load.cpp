// bench_load: loads a package the way the installer does and reports how
// long that took (a driver for bench/load/).
#include <time.h>

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
    "Usage: bench_load PACKAGE [--engine zlib|isa-l] [--chunk BYTES] [--unpack-only]\n"
    "\n"
    "Loads PACKAGE with load_package (space check, inflating into a working\n"
    "file in $TMPDIR, reading the catalogue) and prints one line:\n"
    "  <seconds> <files> <engine> <chunk>\n"
    "The working file is deleted before exit. --unpack-only times only the\n"
    "inflation into the working file. Exit status 1 when loading fails.\n";

}  // namespace

int main(int argc, char** argv) {
  std::string package;
  LoadOptions options;
  bool unpackOnly = false;
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
          std::fprintf(stderr, "bench_load: isa-l is not built in\n");
          return 2;
        }
      } else {
        std::fprintf(stderr, "bench_load: unknown engine %s\n", name.c_str());
        return 2;
      }
    } else if (arg == "--chunk" && i + 1 < argc) {
      options.chunkSize = std::strtoull(argv[++i], nullptr, 10);
      if (options.chunkSize == 0) options.chunkSize = LZCompressor::kBufferSize;
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

  size_t files = 0;
  double start = now_seconds();
  if (unpackOnly) {
    std::u16string dir, working;
    FileSystem::GetTempPath(dir);
    FileSystem::GetTempFileName(dir, u"kpt", working);
    unsigned code = LZCompressor::unpack(widen_lib(package), working, options.engine,
                                         options.chunkSize);
    double elapsed = now_seconds() - start;
    FileSystem::DeleteFile(working);
    if (code != 0) {
      std::fprintf(stderr, "bench_load: unpack failed with %u\n", code);
      return 1;
    }
    std::printf("%.6f 0 %s %zu\n", elapsed, inflate_engine_name(options.engine),
                options.chunkSize);
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
