// tpk-list: prints and checks the header and catalogue of a package.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "compat/file_finder.h"
#include "compat/text.h"
#include "package/catalogue.h"
#include "package/contents_check.h"
#include "package/inflate_decoder.h"
#include "project_version.h"
#include "starter/config_file.h"
#include "starter/config_file_io.h"
#include "starter/config_locations.h"
#include "starter/starter.h"
#include "starter/starter_state.h"
#include "tools/monotonic_clock.h"
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

// Counts the decoded bytes, showing the count now and then when asked to.
class CountingSink : public InflateSink {
 public:
  explicit CountingSink(bool show) : m_show(show), m_last(now_seconds()) {}
  void write(const uint8_t*, size_t size) override {
    m_total += size;
    if (!m_show) return;
    double t = now_seconds();
    if (t - m_last < 0.2) return;
    m_last = t;
    m_shown = true;
    std::fprintf(stderr, "\rtpk-list: decoding %.1f MiB", double(m_total) / double(1 << 20));
  }
  uint64_t total() const { return m_total; }
  void done() {
    if (m_shown) std::fputc('\n', stderr);
  }

 private:
  bool m_show;
  uint64_t m_total = 0;
  double m_last;
  bool m_shown = false;
};

// The decoded stream, pulled front to back (only as far as it is read).
class InflatingSource : public ByteSource {
 public:
  InflatingSource(const uint8_t* data, uint64_t size) : m_data(data), m_left(size) {
    inflateInit2(&m_zs, -MAX_WBITS);
  }
  ~InflatingSource() override { inflateEnd(&m_zs); }
  unsigned read(uint8_t* buffer, size_t count, size_t* got) override {
    *got = 0;
    while (count != 0 && !m_ended) {
      if (m_zs.avail_in == 0 && m_left != 0) {
        uInt slice = m_left > UINT32_MAX ? UINT32_MAX : uInt(m_left);
        m_zs.next_in = const_cast<Bytef*>(m_data);
        m_zs.avail_in = slice;
        m_data += slice;
        m_left -= slice;
      }
      uInt want = count > UINT32_MAX ? UINT32_MAX : uInt(count);
      m_zs.next_out = buffer;
      m_zs.avail_out = want;
      int result = inflate(&m_zs, Z_NO_FLUSH);
      size_t produced = want - m_zs.avail_out;
      *got += produced;
      buffer += produced;
      count -= produced;
      if (result == Z_STREAM_END || (result == Z_BUF_ERROR && m_zs.avail_in == 0 && m_left == 0))
        m_ended = true;
      else if (result != Z_OK)
        return ERROR_INVALID_DATA;
      else if (produced == 0 && m_zs.avail_in == 0 && m_left == 0)
        m_ended = true;
    }
    return 0;
  }

 private:
  static constexpr unsigned ERROR_INVALID_DATA = 13;
  z_stream m_zs{};
  const uint8_t* m_data;
  uint64_t m_left;
  bool m_ended = false;
};

// Feeds every checked file's contents to its check as the decoded stream
// goes past (entries in order of their offsets, any overlap allowed).
class ContentsChecker : public InflateSink {
 public:
  ContentsChecker(const std::vector<FileEntry>& files, uint64_t dataStart)
      : m_files(files), m_dataStart(dataStart) {
    for (size_t i = 0; i < files.size(); ++i)
      if (files[i].hasCheck) m_order.push_back(i);
    std::sort(m_order.begin(), m_order.end(),
              [&](size_t a, size_t b) { return files[a].offset < files[b].offset; });
  }
  void write(const uint8_t* data, size_t size) override {
    uint64_t begin = m_position, end = m_position + size;
    m_position = end;
    if (end <= m_dataStart) return;
    for (; m_next < m_order.size() &&
           m_dataStart + m_files[m_order[m_next]].offset < end;
         ++m_next)
      m_active.push_back({m_order[m_next], ContentsCheck(m_files[m_order[m_next]])});
    for (size_t k = 0; k < m_active.size();) {
      Active& a = m_active[k];
      const FileEntry& f = m_files[a.index];
      uint64_t from = std::max(begin, m_dataStart + f.offset);
      uint64_t to = std::min(end, m_dataStart + f.offset + f.size);
      if (from < to) a.check.update(data + (from - begin), size_t(to - from));
      if (m_dataStart + f.offset + f.size <= end) {
        if (!a.check.matches()) m_mismatched.push_back(a.index);
        m_active.erase(m_active.begin() + long(k));
      } else {
        ++k;
      }
    }
  }
  // Indexes of the files whose contents do not match, in the order found
  // (a file not wholly decoded counts as not matching).
  std::vector<size_t> mismatched() {
    for (Active& a : m_active) m_mismatched.push_back(a.index);
    for (; m_next < m_order.size(); ++m_next)
      if (m_files[m_order[m_next]].size != 0 || !ContentsCheck(m_files[m_order[m_next]]).matches())
        m_mismatched.push_back(m_order[m_next]);
    m_active.clear();
    return m_mismatched;
  }

 private:
  struct Active {
    size_t index;
    ContentsCheck check;
  };
  const std::vector<FileEntry>& m_files;
  uint64_t m_dataStart;
  std::vector<size_t> m_order;
  size_t m_next = 0;
  std::vector<Active> m_active;
  std::vector<size_t> m_mismatched;
  uint64_t m_position = 0;
};

// Decodes the package once more and checks every checked file's contents;
// prints each mismatch and returns how many there were.
size_t check_contents(const char* path, const uint8_t* data, uint64_t size,
                      const std::vector<FileEntry>& files, uint64_t dataStart) {
  ContentsChecker checker(files, dataStart);
  inflate_stream(data, size, checker);
  std::vector<size_t> bad = checker.mismatched();
  for (size_t i : bad)
    std::fprintf(stderr,
                 "tpk-list: %s: damaged package: the contents of %s do not match its record\n", path,
                 tpk::utf16_to_utf8(files[i].name).c_str());
  return bad.size();
}

std::string quoted(const std::u16string& text) { return "\"" + tpk::utf16_to_utf8(text) + "\""; }

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

// What an installation into a template directory would do with one entry.
enum class Action { kNew, kReplace, kKeep, kConflict };

const char* action_name(Action action) {
  switch (action) {
    case Action::kNew:
      return "new";
    case Action::kReplace:
      return "replace";
    case Action::kKeep:
      return "keep";
    case Action::kConflict:
      return "conflict";
  }
  return "";
}

// Where the installer puts `name` below `dir`: "\" read as "/".
std::string target_path(const std::string& dir, const std::u16string& name) {
  std::string path = dir;
  if (!path.empty() && path.back() != '/' && path.back() != '\\') path += '/';
  std::string relative = tpk::utf16_to_utf8(name);
  for (char& c : relative)
    if (c == '\\') c = '/';
  return path + relative;
}

// The installer's rule, through the file's status alone: a regular file is
// replaced only when its last-write time, to 100 ns, is older than the
// package's; a directory in the way fails the installation; anything else
// that stands there is moved aside and replaced.
Action plan_entry(const std::string& dir, const FileEntry& entry) {
  const std::string path = target_path(dir, entry.name);
  struct stat st;
  if (stat(path.c_str(), &st) != 0) {
    if (errno == ENOENT) return lstat(path.c_str(), &st) == 0 ? Action::kReplace : Action::kNew;
    return Action::kConflict;  // a file where a folder is needed, or no access
  }
  if (S_ISDIR(st.st_mode)) return Action::kConflict;
  if (!S_ISREG(st.st_mode)) return Action::kReplace;
  uint64_t installed = 0;
  if (!tpk::filetime_from_unix(st.st_mtim.tv_sec, st.st_mtim.tv_nsec, installed)) installed = 0;
  const uint64_t packaged = (uint64_t(entry.time.dwHighDateTime) << 32) | entry.time.dwLowDateTime;
  return installed < packaged ? Action::kReplace : Action::kKeep;
}

std::vector<Action> plan(const std::string& dir, const std::vector<FileEntry>& files) {
  std::vector<Action> actions;
  for (const FileEntry& f : files) actions.push_back(plan_entry(dir, f));
  return actions;
}

// How many entries of a plan take each action, indexed by Action.
struct PlanCounts {
  unsigned of[4] = {};
  explicit PlanCounts(const std::vector<Action>& actions) {
    for (Action a : actions) ++of[static_cast<int>(a)];
  }
};

// Exit status of a plan: a conflict means the installation would fail.
constexpr int kExitConflict = 3;
int plan_status(const PlanCounts& counts) {
  return counts.of[static_cast<int>(Action::kConflict)] != 0 ? kExitConflict : 0;
}

// What the installer would learn from this user's starter configuration
// (below $HOME), as it reads it at start: the directory it proposes, the
// per-user file it writes after an installation (empty when it writes none)
// and the first directory that file lists now.
struct StarterFacts {
  std::u16string proposal;
  std::u16string file;
  bool listsAny = false;
  std::u16string first;
};

bool entry_exists(const std::u16string& path) {
  FileFinder finder;
  return finder.reset(path);
}

bool is_directory(const char* path) {
  struct stat st;
  return path && stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

// Whether the installer's probe for a listed directory succeeds. It creates
// its probe file where a temporary file would go: in $TMPDIR when that names
// a directory, else in the listed directory when it is one, else in /tmp.
// A plan creates nothing, so it asks the system whether the file could be made.
bool probe_succeeds(const std::u16string& dir) {
  const char* tmpdir = std::getenv("TMPDIR");
  const std::string listed = narrow_lib(dir);
  const std::string where = is_directory(tmpdir)             ? tmpdir
                            : is_directory(listed.c_str()) ? listed
                                                             : "/tmp";
  return access(where.c_str(), W_OK | X_OK) == 0;
}

StarterFacts starter_facts() {
  StarterFacts facts;
  std::vector<std::u16string> dirs;
  if (entry_exists(get_local_config_file_path())) {
    get_tmplts_list(dirs, true, false);
    facts.file = get_local_config_file_path();
  } else if (entry_exists(get_local_config_file_path_base())) {
    get_tmplts_list(dirs, true, true);
    if (!dirs.empty()) facts.file = get_local_config_file_path_base();
  }
  std::u16string proposal = zq_app_data_dir(false) + u"/tmplts";
  for (const std::u16string& dir : dirs)
    if (probe_succeeds(dir)) {
      proposal = dir;
      break;
    }
  facts.proposal = clean_proposal(proposal);
  if (!facts.file.empty()) {
    ConfigFile config;
    read_config_file(facts.file, config);
    const std::vector<std::u16string>* listed = config.findValues(kConfigFileFieldTemplatesLocation);
    if (listed && !listed->empty()) {
      facts.listsAny = true;
      facts.first = (*listed)[0];
      replace_all(facts.first, u"\\", u"/");
    }
  }
  return facts;
}

int print_plan(const std::string& dir, const std::vector<FileEntry>& files, bool named) {
  const std::vector<Action> actions = plan(dir, files);
  if (named) std::printf("directory: %s\n", dir.c_str());
  for (size_t i = 0; i < files.size(); ++i)
    std::printf("%-8s %s\n", action_name(actions[i]), tpk::utf16_to_utf8(files[i].name).c_str());
  const PlanCounts counts(actions);
  std::printf("%zu entries: %u new, %u replace, %u keep, %u conflict\n", actions.size(),
              counts.of[0], counts.of[1], counts.of[2], counts.of[3]);
  return plan_status(counts);
}

// A JSON string of UTF-16 text: pairs as UTF-8, a unit without its partner
// (a byte that was not valid UTF-8, for instance) as a \u escape.
std::string json_string(const std::u16string& text) {
  std::string out = "\"";
  for (size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    const bool high = c >= 0xD800 && c <= 0xDBFF;
    if (high && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      out += tpk::utf16_to_utf8(text.substr(i, 2));  // a whole pair: its character
      ++i;
    } else if (c == u'"' || c == u'\\') {
      out += '\\';
      out += char(c);
    } else if (c < 0x20 || (c >= 0xD800 && c <= 0xDFFF) || c == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", unsigned(c));
      out += escape;
    } else {
      out += tpk::utf16_to_utf8(std::u16string(1, c));
    }
  }
  return out + "\"";
}

int print_json(const char* path, uint64_t compressed, uint64_t decoded, bool reachedEnd,
               const CatalogueInfo& info, const std::vector<LanguageEntry>& languages,
               const std::vector<FileEntry>& files, const char* against,
               const StarterFacts* starter) {
  std::vector<Action> actions;
  if (against) actions = plan(against, files);
  const PlanCounts counts(actions);
  std::printf("{\n  \"package\": %s,\n", json_string(tpk::utf8_to_utf16(path)).c_str());
  std::printf("  \"compressed_bytes\": %llu,\n  \"decoded_bytes\": %llu,\n",
              (unsigned long long)compressed, (unsigned long long)decoded);
  std::printf("  \"end_marker\": %s,\n  \"header_kind\": %u,\n  \"data_start\": %llu,\n",
              reachedEnd ? "true" : "false", info.kind, (unsigned long long)info.dataStart);
  std::printf("  \"languages\": [");
  for (size_t i = 0; i < languages.size(); ++i) {
    const LanguageEntry& l = languages[i];
    std::printf("%s\n    {\"code\": %s, \"title1\": %s, \"title2\": %s, \"description\": %s}",
                i ? "," : "", json_string(l.language).c_str(), json_string(l.title1).c_str(),
                json_string(l.title2).c_str(), json_string(l.descriptionRef).c_str());
  }
  std::printf("%s],\n", languages.empty() ? "" : "\n  ");
  if (against) {
    std::printf("  \"against\": %s,\n", json_string(tpk::utf8_to_utf16(against)).c_str());
    std::printf("  \"summary\": {\"new\": %u, \"replace\": %u, \"keep\": %u, \"conflict\": %u},\n",
                counts.of[0], counts.of[1], counts.of[2], counts.of[3]);
    std::printf("  \"starter\": {\"proposal\": %s, \"file\": %s, \"first\": %s},\n",
                json_string(starter->proposal).c_str(),
                starter->file.empty() ? "null" : json_string(starter->file).c_str(),
                starter->listsAny ? json_string(starter->first).c_str() : "null");
  }
  std::printf("  \"files\": [");
  for (size_t i = 0; i < files.size(); ++i) {
    const FileEntry& f = files[i];
    const uint64_t ticks = (uint64_t(f.time.dwHighDateTime) << 32) | f.time.dwLowDateTime;
    std::printf(
        "%s\n    {\"name\": %s, \"size\": %u, \"offset\": %llu, \"time\": \"%s\", "
        "\"filetime\": %llu",
        i ? "," : "", json_string(f.name).c_str(), f.size, (unsigned long long)f.offset,
        tpk::format_filetime(ticks).c_str(), (unsigned long long)ticks);
    if (against) std::printf(", \"action\": \"%s\"", action_name(actions[i]));
    std::printf("}");
  }
  std::printf("%s]\n}\n", files.empty() ? "" : "\n  ");
  return against ? plan_status(counts) : 0;
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

  // First pass: the decoded size, and whether the stream decodes at all.
  CountingSink counter(isatty(STDERR_FILENO));
  InflateOutcome outcome = inflate_stream(data, size, counter);
  counter.done();
  if (outcome.code != 0) {
    std::fprintf(stderr, "tpk-list: %s: damaged package: invalid compressed data\n", path);
    return 1;
  }

  // Second pass: the header and catalogue, decoded only as far as they go.
  InflatingSource source(data, size);
  std::vector<LanguageEntry> languages;
  std::vector<FileEntry> files;
  CatalogueInfo info;
  if (read_catalogue(source, counter.total(), languages, files, info) != 0) {
    std::fprintf(stderr, "tpk-list: %s: damaged package: %s\n", path,
                 info.fault.empty() ? "unreadable catalogue" : info.fault.c_str());
    return 1;
  }

  if (check_contents(path, data, size, files, info.dataStart) != 0) return 1;

  if (options.against || options.proposed) {
    const StarterFacts starter = starter_facts();
    if (options.proposed && starter.proposal.empty()) {
      // The first listed directory held a URL: the installer refuses the empty proposal.
      std::fprintf(stderr, "tpk-list: the installer proposes no directory to this user (the "
                           "starter file's first entry holds a URL) and would refuse to install\n");
      return 2;
    }
    const std::string dir = options.against ? options.against : narrow_lib(starter.proposal);
    if (options.json)
      return print_json(path, size, counter.total(), outcome.reachedEnd, info, languages, files,
                        dir.c_str(), &starter);
    return print_plan(dir, files, options.proposed);
  }
  if (options.json)
    return print_json(path, size, counter.total(), outcome.reachedEnd, info, languages, files,
                      nullptr, nullptr);

  uint64_t contents = 0, checked = 0;
  for (const FileEntry& f : files) {
    contents += f.size;
    checked += f.hasCheck;
  }
  std::printf("package: %s\n", path);
  std::printf("compressed: %llu bytes, decoded: %llu bytes%s\n", (unsigned long long)size,
              (unsigned long long)counter.total(),
              outcome.reachedEnd ? "" : " (stream ends without its end marker)");
  std::printf("header kind: %u\n", info.kind);
  std::printf("languages: %zu\n", languages.size());
  for (const LanguageEntry& l : languages)
    std::printf("  %s %s %s %s\n", quoted(l.language).c_str(), quoted(l.title1).c_str(),
                quoted(l.title2).c_str(), quoted(l.descriptionRef).c_str());
  std::printf("files: %zu (%llu with a CRC-32 check), contents: %llu bytes, data area: %llu bytes "
              "at %llu\n",
              files.size(), (unsigned long long)checked, (unsigned long long)contents,
              (unsigned long long)(counter.total() - info.dataStart),
              (unsigned long long)info.dataStart);
  for (const FileEntry& f : files) {
    uint64_t ticks = (uint64_t(f.time.dwHighDateTime) << 32) | f.time.dwLowDateTime;
    std::printf("  %s %12u %10llu %s\n", tpk::format_filetime(ticks).c_str(), f.size,
                (unsigned long long)f.offset, tpk::utf16_to_utf8(f.name).c_str());
  }
  return 0;
}
