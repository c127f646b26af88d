// tpk-list: prints and checks the header and catalogue of a package.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "compat/file_time.h"
#include "compat/text.h"
#include "compat/unicode.h"
#include "project_version.h"
#include "tools/install_plan.h"
#include "tools/json_listing.h"
#include "tools/package_scan.h"
#include "tools/tpk_writer.h"

namespace {

const char kUsage[] =
    "Usage: tpk-list [--json] [--against DIR | --proposed] PACKAGE\n"
    "\n"
    "Prints the header kind, the languages and the catalogue of PACKAGE (name,\n"
    "size, last-write time in UTC to 100 ns) and checks that the package decodes\n"
    "and that every entry is acceptable and lies inside the data area, that\n"
    "every record carrying a check matches it, and that every checked file's\n"
    "contents match their record.\n"
    "Each file line: last-write time, size, offset in the data area, name.\n"
    "\n"
    "  --against DIR  instead, what installing into DIR would do with each entry:\n"
    "                 new (nothing there), replace (the installed file is older,\n"
    "                 to 100 ns), keep (it is as new or newer) or conflict (a\n"
    "                 directory or an unreadable place is in the way: the\n"
    "                 installation would fail), then the name; a summary line\n"
    "                 last. DIR is only looked at, never changed.\n"
    "  --proposed     the same against the directory that the installer would\n"
    "                 propose to this user (from the starter configuration below\n"
    "                 $HOME), named on a first line\n"
    "  --json         the listing (and the plan, with its counts and what the\n"
    "                 starter configuration says) as one JSON object\n"
    "  -h, --help     this text\n"
    "  --version      the version\n"
    "\n"
    "Exit status: 0 for a sound package, 1 for a damaged one, 2 when the\n"
    "package cannot be read, the command line is wrong or --proposed finds no\n"
    "directory, 3 when the plan holds a conflict (the installation would fail;\n"
    "the plan is printed all the same).\n";

std::string quoted(const std::u16string& text) { return "\"" + utf16_to_utf8(text) + "\""; }

// What the command line asks for.
struct ListOptions {
  const char* package = nullptr;
  const char* against = nullptr;  // plan against this template directory
  bool proposed = false;          // plan against the installer's proposal
  bool json = false;
};

// False with the exit status in `status` when the program ends here
// (--help, --version, a wrong command line).
bool parse_arguments(int argc, char** argv, ListOptions& options, int& status) {
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    if (std::strcmp(arg, "-h") == 0 || std::strcmp(arg, "--help") == 0) {
      std::fputs(kUsage, stdout);
      status = 0;
      return false;
    }
    if (std::strcmp(arg, "--version") == 0) {
      std::printf("tpk-list %s\n", TPL_PROJECT_VERSION);
      status = 0;
      return false;
    }
    if (std::strcmp(arg, "--json") == 0) {
      options.json = true;
    } else if (std::strcmp(arg, "--against") == 0 && i + 1 < argc && !options.against &&
               !options.proposed) {
      options.against = argv[++i];
    } else if (std::strcmp(arg, "--proposed") == 0 && !options.against) {
      options.proposed = true;
    } else if (arg[0] != '-' && !options.package) {
      options.package = arg;
    } else {
      std::fputs(kUsage, stderr);
      status = 2;
      return false;
    }
  }
  if (options.package) return true;
  std::fputs(kUsage, stderr);
  status = 2;
  return false;
}

// The listing as text.
void print_listing(const char* path, uint64_t compressed, const PackageScan& scan) {
  uint64_t contents = 0, checked = 0;
  for (const FileEntry& f : scan.files) {
    contents += f.size;
    checked += f.hasCheck;
  }
  std::printf("package: %s\n", path);
  std::printf("compressed: %llu bytes, decoded: %llu bytes%s\n", (unsigned long long)compressed,
              (unsigned long long)scan.decoded,
              scan.reachedEnd ? "" : " (stream ends without its end marker)");
  std::printf("header kind: %u\n", scan.info.kind);
  std::printf("languages: %zu\n", scan.languages.size());
  for (const LanguageEntry& l : scan.languages)
    std::printf("  %s %s %s %s\n", quoted(l.language).c_str(), quoted(l.title1).c_str(),
                quoted(l.title2).c_str(), quoted(l.descriptionRef).c_str());
  std::printf(
      "files: %zu (%llu with a CRC-32 check), contents: %llu bytes, data area: %llu bytes "
      "at %llu\n",
      scan.files.size(), (unsigned long long)checked, (unsigned long long)contents,
      (unsigned long long)(scan.decoded - scan.info.dataStart),
      (unsigned long long)scan.info.dataStart);
  for (const FileEntry& f : scan.files)
    std::printf("  %s %12u %10llu %s\n", tpk::format_filetime(FileTimeToU64(f.time)).c_str(),
                f.size, (unsigned long long)f.offset, utf16_to_utf8(f.name).c_str());
}

}  // namespace

int main(int argc, char** argv) {
  ListOptions options;
  int status = 0;
  if (!parse_arguments(argc, argv, options, status)) return status;
  const char* path = options.package;
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    std::fprintf(stderr, "tpk-list: cannot read %s: %s\n", path,
                 fd < 0 ? std::strerror(errno) : "not a regular file");
    return 2;
  }
  uint64_t size = uint64_t(st.st_size);
  const uint8_t* data = nullptr;
  if (size != 0) {
    void* m = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    if (m == MAP_FAILED) {
      std::fprintf(stderr, "tpk-list: cannot map %s: %s\n", path, std::strerror(errno));
      return 2;
    }
    data = static_cast<const uint8_t*>(m);
  }

  PackageScan scan;
  if (!scan_package(path, data, size, scan)) return 1;

  if (options.against || options.proposed) {
    const StarterFacts starter = starter_facts();
    if (options.proposed && starter.proposal.empty()) {
      // The first listed directory held a URL: the installer refuses the empty proposal.
      std::fprintf(stderr,
                   "tpk-list: the installer proposes no directory to this user (the "
                   "starter file's first entry holds a URL) and would refuse to install\n");
      return 2;
    }
    const std::string dir = options.against ? options.against : narrow_lib(starter.proposal);
    if (options.json) return print_json(path, size, scan, dir.c_str(), &starter);
    return print_plan(dir, scan.files, options.proposed);
  }
  if (options.json) return print_json(path, size, scan, nullptr, nullptr);
  print_listing(path, size, scan);
  return 0;
}
