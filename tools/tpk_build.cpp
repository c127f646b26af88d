// tpk-build: packs a directory tree into a distribution package.
#include <fnmatch.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "project_version.h"
#include "texts/resources.h"
#include "tools/monotonic_clock.h"
#include "tools/tpk_writer.h"

namespace {

const char kUsage[] =
    "Usage: tpk-build SRC_DIR -o PACKAGE [options]\n"
    "\n"
    "Packs every regular file below SRC_DIR into PACKAGE (normally plom8.tpk):\n"
    "relative names with \"/\" separators, modification times to 100 ns, and the\n"
    "contents, all as one raw deflate stream. The same tree gives the same bytes.\n"
    "With SOURCE_DATE_EPOCH set (seconds since 1970), every later time is packed\n"
    "as that time, so two checkouts of one tree give the same package.\n"
    "\n"
    "Options:\n"
    "  -o, --output PACKAGE   package to write (required; the installer looks for\n"
    "                         plom8.tpk)\n"
    "  --exclude GLOB         leave out every file whose relative path, or one of\n"
    "                         whose folders, matches GLOB (fnmatch; \"*\" also\n"
    "                         matches \"/\"); repeatable, e.g. --exclude .git\n"
    "                         --exclude '*~'\n"
    "  --lang CODE:TITLE1:TITLE2:DOCREF\n"
    "                         add a language record (repeatable, each CODE once);\n"
    "                         the header then holds a language table. CODE is one\n"
    "                         of the installer's languages (CODES). DOCREF, the\n"
    "                         description document, is appended to the template\n"
    "                         directory as written (\"/docs/readme.html\"); it may\n"
    "                         contain ':'.\n"
    "  --title1 TEXT, --title2 TEXT, --docref REF\n"
    "                         texts of the single-language header (used when no\n"
    "                         --lang is given; read as language \"en\")\n"
    "  --level N              deflate level 0-9 (default 6)\n"
    "  --no-check             leave out the CRC-32 check of each file record\n"
    "                         (the records then read as in packages without it)\n"
    "  -q, --quiet            no progress display and no summary line\n"
    "  -h, --help             this text\n"
    "  --version              the version\n"
    "\n"
    "Exit status: 0 when the package was written, 1 when it could not be (bad\n"
    "tree, write failure), 2 for a wrong command line.\n";

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

std::string language_codes() {
  std::string codes;
  for (const std::string& code : get_lang_codes()) codes += (codes.empty() ? "" : " ") + code;
  return codes;
}

std::string usage_text() {
  std::string text = kUsage;
  text.replace(text.find("CODES"), 5, language_codes());
  return text;
}

// Every language code must be one the installer knows, and each one once.
bool check_languages(const std::vector<tpk::Language>& languages, std::string& error) {
  std::set<std::u16string> seen;
  for (const tpk::Language& language : languages) {
    const std::string code = tpk::utf16_to_utf8(language.code);
    if (get_lang_id_by_lang_code(code) == kLangNone) {
      error =
          "unknown language code \"" + code + "\" (the installer knows " + language_codes() + ")";
      return false;
    }
    if (!seen.insert(language.code).second) {
      error = "language \"" + code + "\" given twice";
      return false;
    }
  }
  return true;
}

// SOURCE_DATE_EPOCH as a file time; `set` false when it is not in the
// environment. False when its value is not a whole number of seconds.
bool source_date_epoch(bool& set, uint64_t& ticks, std::string& error) {
  const char* text = std::getenv("SOURCE_DATE_EPOCH");
  set = text != nullptr;
  if (!set) return true;
  char* end = nullptr;
  errno = 0;
  unsigned long long seconds = std::strtoull(text, &end, 10);
  // 10^12 seconds (some 31,000 years) is far from the 64-bit tick limit.
  if (!*text || *end || text[0] == '-' || text[0] == '+' || errno != 0 ||
      seconds > 1000000000000ULL || !tpk::filetime_from_unix(int64_t(seconds), 0, ticks)) {
    error = std::string("SOURCE_DATE_EPOCH must be a number of seconds since 1970, not \"") + text +
            "\"";
    return false;
  }
  return true;
}

// Files newer than `ticks` are packed with `ticks`; older ones keep their time.
void clamp_times(std::vector<tpk::SourceFile>& files, uint64_t ticks) {
  for (tpk::SourceFile& file : files)
    if (file.time > ticks) file.time = ticks;
}

// True when a pattern matches `relative` or one of the folders leading to it.
bool is_excluded(const std::string& relative, const std::vector<std::string>& patterns) {
  for (size_t end = relative.find('/');; end = relative.find('/', end + 1)) {
    const std::string part = relative.substr(0, end);
    for (const std::string& pattern : patterns)
      if (fnmatch(pattern.c_str(), part.c_str(), 0) == 0) return true;
    if (end == std::string::npos) return false;
  }
}

// Leaves out the excluded files; a warning for each pattern that matched
// nothing (a pattern with a trailing "/" never matches: folders are matched
// by their names).
void drop_excluded(std::vector<tpk::SourceFile>& files, const std::vector<std::string>& patterns,
                   std::vector<std::string>& warnings) {
  if (patterns.empty()) return;
  std::vector<bool> used(patterns.size());
  std::vector<tpk::SourceFile> kept;
  for (tpk::SourceFile& file : files) {
    const std::string relative = tpk::utf16_to_utf8(file.name);
    bool excluded = false;
    for (size_t i = 0; i < patterns.size(); ++i)
      if (is_excluded(relative, {patterns[i]})) excluded = used[i] = true;
    if (!excluded) kept.push_back(std::move(file));
  }
  files.swap(kept);
  for (size_t i = 0; i < patterns.size(); ++i) {
    if (used[i]) continue;
    const std::string& p = patterns[i];
    std::string w = "--exclude '" + p + "' matched nothing";
    if (p.size() > 1 && p.back() == '/')
      w += " (a folder is matched by its name: --exclude '" + p.substr(0, p.size() - 1) + "')";
    warnings.push_back(w);
  }
}

// Warnings about packed files that look like version-control folders (.git,
// .svn) or editor leftovers (*~, .#*, *.swp), naming them and the --exclude
// that leaves them out.
std::vector<std::string> leftover_warnings(const std::vector<tpk::SourceFile>& files) {
  std::map<std::string, size_t> folders;  // folder, files below it
  const char* const kEditorPatterns[] = {"*~", ".#*", "*.swp"};
  std::vector<std::string> editorFiles[3];
  for (const tpk::SourceFile& file : files) {
    const std::string relative = tpk::utf16_to_utf8(file.name);
    size_t start = 0, slash;
    bool inFolder = false;
    for (; (slash = relative.find('/', start)) != std::string::npos; start = slash + 1) {
      const std::string part = relative.substr(start, slash - start);
      if (part != ".git" && part != ".svn") continue;
      ++folders[relative.substr(0, slash)];
      inFolder = true;
      break;
    }
    if (inFolder) continue;
    const std::string base = relative.substr(start);
    for (int k = 0; k < 3; ++k)
      if (fnmatch(kEditorPatterns[k], base.c_str(), 0) == 0) {
        editorFiles[k].push_back(relative);
        break;
      }
  }
  std::vector<std::string> warnings;
  for (const auto& [folder, count] : folders)
    warnings.push_back("the version-control folder " + folder + "/ is packed (" +
                       std::to_string(count) + (count == 1 ? " file" : " files") +
                       "); leave it out with --exclude '" + folder + "'");
  for (int k = 0; k < 3; ++k) {
    const std::vector<std::string>& names = editorFiles[k];
    if (names.empty()) continue;
    std::string list;
    for (size_t i = 0; i < names.size() && i < 10; ++i) list += (i ? ", " : "") + names[i];
    if (names.size() > 10) list += " and " + std::to_string(names.size() - 10) + " more";
    warnings.push_back("editor leftovers are packed: " + list +
                       "; leave them out with --exclude '" + kEditorPatterns[k] + "'");
  }
  return warnings;
}

// Warnings about a package the installer would handle badly: a description
// document that is not among the packed files (the installer appends the
// reference to the template directory as it is, so it must start with "/"),
// and a package not named plom8.tpk.
std::vector<std::string> package_warnings(const tpk::Header& header,
                                          const std::vector<tpk::SourceFile>& files,
                                          const std::string& output) {
  std::set<std::u16string> names;
  for (const tpk::SourceFile& file : files) names.insert(file.name);
  std::vector<tpk::Language> languages = header.languages;
  if (header.kind == 0) {
    languages.push_back(header.single);
    languages.back().code = u"en";
  }
  std::vector<std::string> warnings;
  for (const tpk::Language& language : languages) {
    std::u16string ref = language.descriptionRef;
    if (ref.empty()) continue;
    for (char16_t& c : ref)
      if (c == u'\\') c = u'/';
    const std::string shown = "description document \"" +
                              tpk::utf16_to_utf8(language.descriptionRef) + "\" of language \"" +
                              tpk::utf16_to_utf8(language.code) + "\"";
    if (ref[0] != u'/')
      warnings.push_back(shown +
                         " does not start with \"/\"; the installer appends it to the "
                         "template directory as it is");
    const size_t start = ref.find_first_not_of(u'/');
    if (start == std::u16string::npos || !names.count(ref.substr(start)))
      warnings.push_back(shown + " is not in the package");
  }
  const size_t slash = output.rfind('/');
  const std::string base = slash == std::string::npos ? output : output.substr(slash + 1);
  if (base != "plom8.tpk")
    warnings.push_back("the package is named " + base +
                       "; the installer looks for plom8.tpk (rename it in the kit)");
  return warnings;
}

}  // namespace

int main(int argc, char** argv) {
  std::string source, output;
  tpk::Header header;
  int level = 6;
  bool quiet = false;
  bool checks = true;
  bool singleTexts = false;
  std::vector<std::string> excludes;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&](std::string& out) {
      if (i + 1 >= argc) return false;
      out = argv[++i];
      return true;
    };
    std::string v;
    if (arg == "-h" || arg == "--help") {
      std::fputs(usage_text().c_str(), stdout);
      return 0;
    } else if (arg == "--version") {
      std::printf("tpk-build %s\n", TPL_PROJECT_VERSION);
      return 0;
    } else if (arg == "--exclude") {
      if (!value(v) || v.empty()) return usage_error("--exclude needs a pattern");
      excludes.push_back(v);
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
      if (!value(v) || (level = int(std::strtol(v.c_str(), &end, 10)), *end != 0) || v.empty() ||
          level < 0 || level > 9)
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
  std::string error;
  if (!check_languages(header.languages, error)) return usage_error(error);
  bool clamp = false;
  uint64_t epoch = 0;
  if (!source_date_epoch(clamp, epoch, error)) return usage_error(error);

  std::vector<tpk::SourceFile> files;
  std::vector<std::string> warnings;
  if (!tpk::collect_tree(source, output, files, warnings, error)) {
    std::fprintf(stderr, "tpk-build: %s\n", error.c_str());
    return 1;
  }
  drop_excluded(files, excludes, warnings);
  if (files.empty()) {
    std::fprintf(stderr, "tpk-build: no files to pack below %s%s; no package written\n",
                 source.c_str(), excludes.empty() ? "" : " (after --exclude)");
    return 1;
  }
  if (clamp) clamp_times(files, epoch);
  for (const std::string& w : leftover_warnings(files)) warnings.push_back(w);
  for (const std::string& w : package_warnings(header, files, output)) warnings.push_back(w);
  for (const std::string& w : warnings) std::fprintf(stderr, "tpk-build: warning: %s\n", w.c_str());
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
  if (!quiet) {
    uint64_t bytes = 0;
    for (const tpk::SourceFile& file : files) bytes += file.size;
    struct stat st {};
    stat(output.c_str(), &st);
    std::printf("tpk-build: %s: %zu files, %llu bytes, %llu bytes compressed\n", output.c_str(),
                files.size(), (unsigned long long)bytes, (unsigned long long)st.st_size);
  }
  return 0;
}
