// bench_install: times the installer's pipeline in-process, phase by phase.
//
//   bench_install PACKAGE ACTION...
//
// The package is loaded first (phase "load"); the actions then run in the
// order given, each on its own directory:
//   --fresh DIR          install into DIR, which must not exist yet
//   --reinstall DIR      install again into DIR (a complete earlier install)
//   --older DIR          install over DIR (made with --prepare-older)
//   --floor DIR          reference copy with plain system calls (mkdir(2) once
//                        per directory, open/pread/write/futimens per file,
//                        no shell, no journal) into DIR, which must not exist
//   --prepare-older DIR  set-up, not a measurement: every catalogue file
//                        written with changed bytes and a time one day older
//   --verify DIR         check names, sizes, times (100 ns) and contents of
//                        DIR against the package
//   --interrupt DIR      install into DIR in a child process that dies (_exit)
//                        once 70 % of the entries are reached
//   --recover DIR        undo what interrupted runs left (what the next start
//                        does), then check that DIR is as the run found it:
//                        gone when it did not exist, else as --prepare-older
//                        left it
//   --floor-reads exact|full
//                        how later --floor copies read: just the entry's
//                        bytes (the default), or the whole buffer each time
//                        as the installer does
//   --floor-writes BYTES largest single write(2) of later --floor copies
//                        (0, the default: one write per read)
// One JSON object per phase goes to standard output, the last two being
// "unload" (the reader deletes its working file) and "process". Installs run
// with the installer's own final pause, which is timed apart from the copy:
// the copy ends when the finished state is published, the pause runs from
// there to the return of Installer::run.
#include <fcntl.h>
#include <locale.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "bench/instrument.h"
#include "compat/shell.h"
#include "compat/text.h"
#include "install/install_process_data.h"
#include "install/installer.h"
#include "install/recovery.h"
#include "package/package_loader.h"

namespace {

// The working file has no name of its own; the process reaches it here.
std::string working_file_path(const PackageReader& reader) {
  return "/proc/self/fd/" + std::to_string(reinterpret_cast<intptr_t>(reader.handle));
}

constexpr int64_t kOneDayTicks = int64_t(86400) * 10000000;

// User + system seconds of this process and of the children it waited for
// (the shell commands).
double cpu_seconds() {
  double total = 0;
  for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    struct rusage u;
    getrusage(who, &u);
    total += double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
             double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
  }
  return total;
}

double now() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

std::string json_string(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
    } else if (c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += char(c);
    }
  }
  return out + "\"";
}

// One line of JSON, built field by field.
class Record {
 public:
  explicit Record(const std::string& phase) { add("phase", phase); }
  Record& add(const std::string& key, const std::string& value) {
    return raw(key, json_string(value));
  }
  Record& add(const std::string& key, const char* value) { return add(key, std::string(value)); }
  Record& add(const std::string& key, double value) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.6f", value);
    return raw(key, buf);
  }
  Record& add(const std::string& key, uint64_t value) { return raw(key, std::to_string(value)); }
  Record& add(const std::string& key, bool value) { return raw(key, value ? "true" : "false"); }
  Record& raw(const std::string& key, const std::string& json) {
    m_text += (m_text.empty() ? "{" : ", ") + json_string(key) + ": " + json;
    return *this;
  }
  void print() const {
    std::printf("%s}\n", m_text.c_str());
    std::fflush(stdout);
  }

 private:
  std::string m_text;
};

std::string verbs_json(const std::map<std::string, unsigned long>& verbs) {
  std::string out = "{";
  for (const auto& [verb, count] : verbs) {
    if (out.size() > 1) out += ", ";
    out += json_string(verb) + ": " + std::to_string(count);
  }
  return out + "}";
}

// Highest resident set seen by any phase so far. Lowering VmHWM for each
// phase also lowers what getrusage would report, so the process peak is
// kept here.
uint64_t g_processPeakKib = 0;

void note_process_peak() {
  uint64_t hwm = bench::status_kib("VmHWM");
  if (hwm > g_processPeakKib) g_processPeakKib = hwm;
}

// Shell commands, heap and resident-set figures of one phase.
class PhaseMeter {
 public:
  void begin() {
    note_process_peak();
    bench::reset_spawned();
    m_commands = shell_command_count();
    bench::reset_heap_peak();
    m_heapStart = bench::heap_in_use();
    m_rssResettable = bench::reset_rss_peak();
    m_rssStart = bench::status_kib("VmRSS");
    m_cpu = cpu_seconds();
    m_start = now();
  }
  double end() {
    m_seconds = now() - m_start;
    m_cpu = cpu_seconds() - m_cpu;
    m_commands = shell_command_count() - m_commands;
    m_verbs = bench::spawned_verbs();
    m_heapPeak = bench::heap_peak();
    m_rssPeak = bench::status_kib("VmHWM");
    note_process_peak();
    return m_seconds;
  }
  double started() const { return m_start; }
  void report(Record& r) const {
    r.add("seconds", m_seconds)
        .add("cpu_seconds", m_cpu)
        .add("commands", uint64_t(m_commands))
        .raw("command_verbs", verbs_json(m_verbs))
        .add("heap_start_bytes", m_heapStart)
        .add("heap_peak_bytes", m_heapPeak)
        .add("rss_start_kib", m_rssStart)
        .add("rss_peak_kib", m_rssPeak)
        .add("rss_peak_is_phase", m_rssResettable);
  }

 private:
  double m_start = 0, m_seconds = 0, m_cpu = 0;
  unsigned long m_commands = 0;
  std::map<std::string, unsigned long> m_verbs;
  uint64_t m_heapStart = 0, m_heapPeak = 0, m_rssStart = 0, m_rssPeak = 0;
  bool m_rssResettable = false;
};

struct Target {
  std::string path;  // narrow, absolute or as given
  const FileEntry* entry;
};

std::string entry_name(const FileEntry& entry) {
  std::u16string name = entry.name;
  replace_all(name, kBadPathSeparator, kPathSeparator);
  return narrow_lib(name);
}

std::vector<Target> targets_in(const std::string& dir, const PackageReader& reader) {
  std::vector<Target> out;
  out.reserve(reader.files.size());
  for (const FileEntry& entry : reader.files)
    out.push_back({dir + "/" + entry_name(entry), &entry});
  return out;
}

// Every directory the catalogue needs below the root, ancestors included.
size_t directory_count(const PackageReader& reader) {
  std::set<std::string> dirs;
  for (const FileEntry& entry : reader.files) {
    std::string name = entry_name(entry);
    for (size_t slash = name.find('/'); slash != std::string::npos;
         slash = name.find('/', slash + 1))
      dirs.insert(name.substr(0, slash));
  }
  return dirs.size();
}

// What identifies one write to a file: inode, size, change and modification time.
struct Stamp {
  bool exists = false;
  ino_t inode = 0;
  off_t size = 0;
  int64_t ctimeNs = 0, mtimeNs = 0;
  bool operator==(const Stamp& o) const {
    return exists == o.exists && inode == o.inode && size == o.size && ctimeNs == o.ctimeNs &&
           mtimeNs == o.mtimeNs;
  }
};

std::vector<Stamp> stamps(const std::vector<Target>& targets) {
  std::vector<Stamp> out(targets.size());
  for (size_t i = 0; i < targets.size(); ++i) {
    struct stat st;
    if (stat(targets[i].path.c_str(), &st) != 0) continue;
    out[i] = {true, st.st_ino, st.st_size,
              int64_t(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec,
              int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
  }
  return out;
}

size_t changed(const std::vector<Stamp>& before, const std::vector<Stamp>& after) {
  size_t n = 0;
  for (size_t i = 0; i < before.size(); ++i) n += before[i] == after[i] ? 0 : 1;
  return n;
}

bool exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// mkdir(2) of every missing level of `dir`, each level once per run.
bool make_dirs(const std::string& dir, std::set<std::string>& made) {
  if (dir.empty() || made.count(dir)) return true;
  size_t slash = dir.rfind('/');
  if (slash != std::string::npos && slash > 0 && !make_dirs(dir.substr(0, slash), made))
    return false;
  if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) return false;
  made.insert(dir);
  return true;
}

std::string parent(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// How the reference copy reads and writes.
struct CopyStyle {
  bool readFull = false;  // every read asks for the whole buffer, as the installer's do
  size_t writeChunk = 0;  // largest single write(2); 0: one write per read
};

// Writes every catalogue file below `dir` with plain system calls, through
// the reader's copy buffer. `older` flips one byte per 4 KiB and stamps the
// file one day before the package time. Returns the number of failures.
size_t plain_copy(PackageReader& reader, const std::string& dir, bool older,
                  const CopyStyle& style) {
  int src = open(working_file_path(reader).c_str(), O_RDONLY | O_CLOEXEC);
  if (src < 0) return reader.files.size();
  std::set<std::string> made;
  size_t failures = 0;
  uint8_t* buffer = reader.buffer.get();
  for (const Target& t : targets_in(dir, reader)) {
    if (!make_dirs(parent(t.path), made)) {
      ++failures;
      continue;
    }
    int dst = open(t.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (dst < 0) {
      ++failures;
      continue;
    }
    uint64_t offset = t.entry->offset;
    uint64_t left = t.entry->size;
    bool ok = true;
    while (left > 0 && ok) {
      size_t want = left < reader.bufferSize && !style.readFull ? size_t(left) : reader.bufferSize;
      ssize_t got = pread(src, buffer, want, off_t(offset));
      if (got <= 0) {
        ok = false;
        break;
      }
      if (uint64_t(got) > left) got = ssize_t(left);
      if (older)
        for (ssize_t i = 0; i < got; i += 4096) buffer[i] ^= 0xFF;
      size_t step = style.writeChunk ? style.writeChunk : size_t(got);
      for (ssize_t done = 0; done < got && ok;) {
        size_t n = std::min(step, size_t(got - done));
        ok = write(dst, buffer + done, n) == ssize_t(n);
        done += ssize_t(n);
      }
      offset += uint64_t(got);
      left -= uint64_t(got);
    }
    int64_t ticks = int64_t(FileTimeToU64(t.entry->time)) - (older ? kOneDayTicks : 0);
    int64_t seconds;
    long nanoseconds;
    FileTimeToTimespec(U64ToFileTime(uint64_t(ticks)), seconds, nanoseconds);
    struct timespec times[2] = {{time_t(seconds), nanoseconds}, {time_t(seconds), nanoseconds}};
    if (futimens(dst, times) != 0) ok = false;
    if (close(dst) != 0) ok = false;
    if (!ok) ++failures;
  }
  close(src);
  return failures;
}

// Names, sizes, times and contents of `dir` against the package; prints the
// first mismatches to standard error and returns their number.
size_t verify(PackageReader& reader, const std::string& dir) {
  int src = open(working_file_path(reader).c_str(), O_RDONLY | O_CLOEXEC);
  if (src < 0) return reader.files.size();
  std::vector<uint8_t> mine(reader.bufferSize);
  size_t bad = 0;
  for (const Target& t : targets_in(dir, reader)) {
    std::string why;
    struct stat st;
    int64_t seconds;
    long nanoseconds;
    FileTimeToTimespec(t.entry->time, seconds, nanoseconds);
    int fd = -1;
    if (stat(t.path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
      why = "missing";
    } else if (uint64_t(st.st_size) != t.entry->size) {
      why = "size " + std::to_string(st.st_size);
    } else if (st.st_mtim.tv_sec != seconds || st.st_mtim.tv_nsec != nanoseconds) {
      why = "time";
    } else if ((fd = open(t.path.c_str(), O_RDONLY | O_CLOEXEC)) < 0) {
      why = "unreadable";
    } else {
      uint64_t offset = 0;
      while (offset < t.entry->size && why.empty()) {
        size_t want = size_t(std::min<uint64_t>(t.entry->size - offset, mine.size()));
        ssize_t a = pread(src, reader.buffer.get(), want, off_t(t.entry->offset + offset));
        ssize_t b = pread(fd, mine.data(), want, off_t(offset));
        if (a != ssize_t(want) || b != ssize_t(want) ||
            std::memcmp(reader.buffer.get(), mine.data(), want) != 0)
          why = "contents";
        offset += want;
      }
    }
    if (fd >= 0) close(fd);
    if (!why.empty() && ++bad <= 5)
      std::fprintf(stderr, "bench_install: %s: %s\n", t.path.c_str(), why.c_str());
  }
  close(src);
  return bad;
}

// The files of an older copy (--prepare-older) that are not there with the
// older copy's time: 0 when a rollback put every one back.
size_t verify_older(PackageReader& reader, const std::string& dir) {
  size_t bad = 0;
  for (const Target& t : targets_in(dir, reader)) {
    int64_t seconds;
    long nanoseconds;
    FileTimeToTimespec(U64ToFileTime(FileTimeToU64(t.entry->time) - uint64_t(kOneDayTicks)),
                       seconds, nanoseconds);
    struct stat st;
    if (stat(t.path.c_str(), &st) != 0 || st.st_mtim.tv_sec != seconds ||
        st.st_mtim.tv_nsec != nanoseconds)
      ++bad;
  }
  return bad;
}

struct WakeupLog {
  double last = 0;
  uint64_t count = 0;
};

void on_wakeup(void* context) {
  auto* log = static_cast<WakeupLog*>(context);
  log->last = now();
  ++log->count;
}

// One Installer::run into `dir`, reported as `phase`. False when it failed.
bool install(PackageReader& reader, const std::string& phase, const std::string& dir) {
  std::vector<Target> targets = targets_in(dir, reader);
  std::vector<Stamp> before = stamps(targets);

  InstallProcessData data;
  data.init(&reader, widen_lib(dir));
  WakeupLog log;
  data.setWakeup(&on_wakeup, &log);
  Installer installer;
  PhaseMeter meter;
  meter.begin();
  unsigned result = installer.run(&data);
  double total = meter.end();
  double finished = log.count ? log.last - meter.started() : total;

  unsigned state = 0;
  RunPhase runPhase;
  std::u16string path;
  int percent = 0;
  data.getInstallState(state, runPhase, path, percent);
  std::vector<Stamp> after = stamps(targets);

  Record r(phase);
  r.add("dir", dir);
  meter.report(r);
  r.add("copy_seconds", finished)
      .add("pause_seconds", total - finished)
      .add("pause_measured", log.count != 0)
      .add("result", uint64_t(result))
      .add("final_percent", uint64_t(percent))
      .add("files_written", uint64_t(changed(before, after)))
      .add("files", uint64_t(targets.size()));
  r.print();
  return result == 0;
}

// An install into `dir` in a child that dies once 70 % of the entries are
// reached, as a killed installer would. False when the child did not die there.
bool interrupted_install(PackageReader& reader, const std::string& dir) {
  PhaseMeter meter;
  meter.begin();
  const pid_t pid = fork();
  if (pid == 0) {
    InstallProcessData data;
    data.init(&reader, widen_lib(dir));
    data.setWakeup(
        [](void* context) {
          unsigned state;
          RunPhase phase;
          std::u16string path;
          int percent;
          static_cast<InstallProcessData*>(context)->getInstallState(state, phase, path, percent);
          if (percent >= 70) _exit(70);
        },
        &data);
    Installer installer;
    installer.run(&data);
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  meter.end();
  Record r("interrupted");
  r.add("dir", dir);
  meter.report(r);
  r.add("died_at_70_percent", WIFEXITED(status) && WEXITSTATUS(status) == 70);
  r.print();
  return WIFEXITED(status) && WEXITSTATUS(status) == 70;
}

// What the next start does first, timed; then whether `dir` is as it was.
bool recover(PackageReader& reader, const std::string& dir, bool existed) {
  PhaseMeter meter;
  meter.begin();
  const RecoveryReport report = recover_interrupted_runs();
  meter.end();
  const bool back = existed ? verify_older(reader, dir) == 0 : !exists(dir);
  Record r("recover");
  r.add("dir", dir);
  meter.report(r);
  r.add("runs", uint64_t(report.runs.size()))
      .add("complete", report.runs.size() == 1 && report.runs[0].complete)
      .add("as_before", back);
  r.print();
  return back;
}

int usage() {
  std::fprintf(stderr,
               "usage: bench_install PACKAGE [--fresh DIR] [--reinstall DIR] [--older DIR]\n"
               "                     [--floor DIR] [--prepare-older DIR] [--verify DIR]\n"
               "                     [--floor-reads exact|full] [--floor-writes BYTES]\n"
               "                     [--interrupt DIR] [--recover DIR] ...\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  setlocale(LC_ALL, "");
  if (argc < 2 || argv[1][0] == '-') return usage();
  std::vector<std::pair<std::string, std::string>> actions;
  for (int i = 2; i < argc; i += 2) {
    std::string option = argv[i];
    if (i + 1 >= argc) return usage();
    static const std::set<std::string> kKnown = {
        "--fresh",  "--reinstall",   "--older",        "--floor",     "--prepare-older",
        "--verify", "--floor-reads", "--floor-writes", "--interrupt", "--recover"};
    if (!kKnown.count(option)) return usage();
    std::string dir = argv[i + 1];
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    if ((option == "--fresh" || option == "--floor" || option == "--prepare-older") &&
        exists(dir)) {
      std::fprintf(stderr, "bench_install: %s: %s exists; use a never-used directory\n",
                   option.c_str(), dir.c_str());
      return 2;
    }
    actions.emplace_back(option, dir);
  }

  auto owned = std::make_unique<PackageReader>();
  PackageReader& reader = *owned;
  PhaseMeter meter;
  meter.begin();
  const Status loaded = load_package(reader, widen_lib(argv[1]));
  const std::string failure = describe(loaded);
  meter.end();
  {
    uint64_t bytes = 0;
    for (const FileEntry& e : reader.files) bytes += e.size;
    uint64_t packageBytes = 0, workingBytes = 0;
    FileSystem::GetFileSize64(widen_lib(argv[1]), &packageBytes);
    if (reader.handle != INVALID_HANDLE_VALUE)
      FileSystem::GetFileSize64(widen_lib(working_file_path(reader)), &workingBytes);
    Record r("load");
    meter.report(r);
    r.add("error", failure)
        .add("engine", inflate_engine_name(default_inflate_engine()))
        .add("files", uint64_t(reader.files.size()))
        .add("directories", uint64_t(directory_count(reader)))
        .add("content_bytes", bytes)
        .add("package_bytes", packageBytes)
        .add("working_bytes", workingBytes)
        .add("copy_buffer_bytes", uint64_t(reader.bufferSize));
    r.print();
  }
  if (!failure.empty()) return 1;

  bool ok = true;
  bool interruptedExisted = false;
  CopyStyle style;
  for (const auto& [option, dir] : actions) {
    if (option == "--floor-reads") {
      style.readFull = dir == "full";
    } else if (option == "--floor-writes") {
      style.writeChunk = std::strtoul(dir.c_str(), nullptr, 10);
    } else if (option == "--fresh") {
      ok = install(reader, "fresh", dir) && ok;
    } else if (option == "--reinstall") {
      ok = install(reader, "reinstall", dir) && ok;
    } else if (option == "--older") {
      ok = install(reader, "older", dir) && ok;
    } else if (option == "--interrupt") {
      interruptedExisted = exists(dir);
      ok = interrupted_install(reader, dir) && ok;
    } else if (option == "--recover") {
      ok = recover(reader, dir, interruptedExisted) && ok;
    } else if (option == "--floor" || option == "--prepare-older") {
      bool older = option == "--prepare-older";
      meter.begin();
      size_t failures = plain_copy(reader, dir, older, older ? CopyStyle() : style);
      meter.end();
      Record r(older ? "prepare-older" : "floor");
      r.add("dir", dir);
      meter.report(r);
      if (!older)
        r.add("reads", style.readFull ? "full" : "exact")
            .add("write_chunk", uint64_t(style.writeChunk));
      r.add("failures", uint64_t(failures)).add("files", uint64_t(reader.files.size()));
      r.print();
      ok = failures == 0 && ok;
    } else {
      size_t bad = verify(reader, dir);
      Record r("verify");
      r.add("dir", dir)
          .add("mismatches", uint64_t(bad))
          .add("files", uint64_t(reader.files.size()));
      r.print();
      ok = bad == 0 && ok;
    }
  }
  // The end of the program: the reader closes and deletes its working file.
  meter.begin();
  owned.reset();
  meter.end();
  {
    Record r("unload");
    meter.report(r);
    r.print();
  }
  note_process_peak();
  Record("process").add("max_rss_kib", g_processPeakKib).print();
  return ok ? 0 : 1;
}
