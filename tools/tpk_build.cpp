// tpk-build: packs a directory tree into a distribution package.
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tools/monotonic_clock.h"
#include "tools/tpk_writer.h"

namespace {

const char kUsage[] =
    "Usage: tpk-build SRC_DIR -o PACKAGE [options]\n"
    "\n"
    "Packs every regular file below SRC_DIR into PACKAGE (normally plom8.tpk):\n"
    "relative names with \"/\" separators, modification times to 100 ns, and the\n"
    "contents, all as one raw deflate stream. The same tree gives the same bytes.\n"
    "\n"
    "Options:\n"
    "  -o, --output PACKAGE   package to write (required)\n"
    "  --lang CODE:TITLE1:TITLE2:DOCREF\n"
    "                         add a language record (repeatable); the header then\n"
    "                         holds a language table. DOCREF may contain ':'.\n"
    "  --title1 TEXT, --title2 TEXT, --docref REF\n"
    "                         texts of the single-language header (used when no\n"
    "                         --lang is given; read as language \"en\")\n"
    "  --level N              deflate level 0-9 (default 6)\n"
    "  --no-check             leave out the CRC-32 check of each file record\n"
    "                         (the records then read as in packages without it)\n"
    "  -q, --quiet            no progress display\n"
    "  -h, --help             this text\n";

int usage_error(const std::string& message) {
  std::fprintf(stderr, "tpk-build: %s\nTry 'tpk-build --help'.\n", message.c_str());
  return 2;
}

// CODE:TITLE1:TITLE2:DOCREF, the reference taking everything after the third ':'.
bool parse_language(const std::string& text, tpk::Language& language) {
  std::string parts[4];
  size_t start = 0;
  for (int i = 0; i < 3; ++i) {
    size_t colon = text.find(':', start);
    if (colon == std::string::npos) return false;
    parts[i] = text.substr(start, colon - start);
    start = colon + 1;
  }
  parts[3] = text.substr(start);
  if (parts[0].empty()) return false;
  language.code = tpk::utf8_to_utf16(parts[0]);
  language.title1 = tpk::utf8_to_utf16(parts[1]);
  language.title2 = tpk::utf8_to_utf16(parts[2]);
  language.descriptionRef = tpk::utf8_to_utf16(parts[3]);
  return true;
}

std::string human(uint64_t bytes) {
  char text[32];
  if (bytes >= (uint64_t(1) << 30))
    std::snprintf(text, sizeof text, "%.2f GiB", double(bytes) / double(1 << 30));
  else
    std::snprintf(text, sizeof text, "%.1f MiB", double(bytes) / double(1 << 20));
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  std::string source, output;
  tpk::Header header;
  int level = 6;
  bool quiet = false;
  bool checks = true;
  bool singleTexts = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&](std::string& out) {
      if (i + 1 >= argc) return false;
      out = argv[++i];
      return true;
    };
    std::string v;
    if (arg == "-h" || arg == "--help") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "-o" || arg == "--output") {
      if (!value(output)) return usage_error("-o needs a file name");
    } else if (arg == "--lang") {
      tpk::Language language;
      if (!value(v) || !parse_language(v, language))
        return usage_error("--lang needs CODE:TITLE1:TITLE2:DOCREF with a non-empty CODE");
      header.languages.push_back(language);
    } else if (arg == "--title1" || arg == "--title2" || arg == "--docref") {
      if (!value(v)) return usage_error(arg + " needs a value");
      std::u16string text = tpk::utf8_to_utf16(v);
      (arg == "--title1"   ? header.single.title1
       : arg == "--title2" ? header.single.title2
                           : header.single.descriptionRef) = text;
      singleTexts = true;
    } else if (arg == "--level") {
      char* end = nullptr;
      if (!value(v) || (level = int(std::strtol(v.c_str(), &end, 10)), *end != 0) ||
          v.empty() || level < 0 || level > 9)
        return usage_error("--level needs a number from 0 to 9");
    } else if (arg == "--no-check") {
      checks = false;
    } else if (arg == "-q" || arg == "--quiet") {
      quiet = true;
    } else if (!arg.empty() && arg[0] == '-') {
      return usage_error("unknown option " + arg);
    } else if (source.empty()) {
      source = arg;
    } else {
      return usage_error("more than one source directory given");
    }
  }
  if (source.empty()) return usage_error("no source directory given");
  if (output.empty()) return usage_error("no output package given (-o)");
  if (!header.languages.empty() && singleTexts)
    return usage_error("--title1/--title2/--docref apply only without --lang");
  header.kind = header.languages.empty() ? 0 : 1;

  std::vector<tpk::SourceFile> files;
  std::vector<std::string> warnings;
  std::string error;
  if (!tpk::collect_tree(source, output, files, warnings, error)) {
    std::fprintf(stderr, "tpk-build: %s\n", error.c_str());
    return 1;
  }
  for (const std::string& w : warnings) std::fprintf(stderr, "tpk-build: %s\n", w.c_str());
  if (checks && !tpk::compute_checks(files, error)) {
    std::fprintf(stderr, "tpk-build: %s\n", error.c_str());
    return 1;
  }

  bool showProgress = !quiet && isatty(STDERR_FILENO);
  double last = 0;
  int lastPercent = -1;
  tpk::Progress progress;
  if (showProgress) {
    progress = [&](uint64_t done, uint64_t total) {
      int percent = total ? int(done * 100 / total) : 100;
      double t = now_seconds();
      if (percent == lastPercent || (t - last < 0.2 && percent != 100)) return;
      last = t;
      lastPercent = percent;
      std::fprintf(stderr, "\rtpk-build: %3d%% (%s of %s)", percent, human(done).c_str(),
                   human(total).c_str());
    };
  }
  bool ok = tpk::write_package(output, header, files, level, progress, error);
  if (showProgress && lastPercent >= 0) std::fputc('\n', stderr);
  if (!ok) {
    std::fprintf(stderr, "tpk-build: %s\n", error.c_str());
    return 1;
  }
  return 0;
}
