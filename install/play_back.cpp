#include "install/play_back.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "compat/file_ops.h"
#include "compat/file_system.h"
#include "compat/text.h"
#include "install/paths.h"

namespace {

bool look(const std::string& path, struct stat64& st) {
  return file_ops().stat(AT_FDCWD, path, st, false) == 0;
}

bool inside(const std::string& path, const std::string& target) {
  return path == target || is_below(path, target);
}

// The run's view of itself, built once from the records.
struct Plan {
  std::vector<std::string> temps;                                 // W
  std::vector<std::string> fresh;                                 // P of new files, in order
  std::unordered_map<std::string, std::vector<uint64_t>> placed;  // P: inodes written at a path
  std::vector<const JournalEntry*> stored;                        // S
  std::vector<std::string> made;                                  // D, in order, once each
  std::unordered_map<std::string, uint64_t> madeInode;            // E
  std::vector<const JournalEntry*> times;                         // M
};

Plan plan_of(const RunJournal& journal) {
  Plan plan;
  std::unordered_set<std::string> seen, seenTimes;
  for (const JournalEntry& e : journal.entries) {
    switch (e.op) {
      case JournalOp::kTempFile:
        plan.temps.push_back(e.path);
        break;
      case JournalOp::kPlacedFile: {
        auto& inodes = plan.placed[e.path];
        if (inodes.empty() && e.fresh) plan.fresh.push_back(e.path);
        inodes.push_back(e.inode);
        break;
      }
      case JournalOp::kSavedFile:
        plan.stored.push_back(&e);
        break;
      case JournalOp::kDirectory:
        if (seen.insert(e.path).second) plan.made.push_back(e.path);
        break;
      case JournalOp::kDirectoryMade:
        plan.madeInode[e.path] = e.inode;
        break;
      case JournalOp::kTimes:
        if (seenTimes.insert(e.path).second) plan.times.push_back(&e);
        break;
      default:
        break;
    }
  }
  return plan;
}

// Steps, counted for progress and checked for a stop between them.
class Steps {
 public:
  Steps(const PlayBackControl& control, size_t total) : m_control(control), m_total(total) {}
  // False when a stop was asked for: the caller returns.
  bool next() {
    if (m_control.stop && m_control.stop->load()) return false;
    ++m_done;
    if (m_control.progress && (m_done == m_total || m_done % 64 == 0))
      m_control.progress(m_done, m_total);
    return true;
  }

 private:
  const PlayBackControl& m_control;
  size_t m_total;
  size_t m_done = 0;
};

}  // namespace

RunJournal check_journal(const JournalText& text) {
  RunJournal out;
  out.clean = text.clean;
  if (text.entries.empty()) return out;
  const JournalEntry& head = text.entries[0];
  const std::string& spelling = head.path;
  if (head.op != JournalOp::kTarget || spelling.size() < 2 || spelling[0] != '/' ||
      spelling.back() != '/' || head.size >= spelling.size()) {
    out.clean = false;
    return out;
  }
  out.target = fold_path(spelling);
  for (size_t p = spelling.find('/', head.size + 1); p != std::string::npos;
       p = spelling.find('/', p + 1))
    out.levels.push_back(fold_path(spelling.substr(0, p)));
  std::unordered_set<std::string> levels(out.levels.begin(), out.levels.end());
  std::unordered_set<std::string> aboveLevels;
  for (const std::string& level : out.levels) aboveLevels.insert(parent_of(level));
  out.entries.push_back(head);

  for (size_t i = 1; i < text.entries.size(); ++i) {
    const JournalEntry& e = text.entries[i];
    const std::string& p = e.path;
    bool fits = false;
    if (e.op == JournalOp::kCommitted) {
      fits = true;
    } else if (!p.empty() && p[0] == '/' && fold_path(p) == p) {
      switch (e.op) {
        case JournalOp::kDirectory:
        case JournalOp::kDirectoryMade:
          fits = inside(p, out.target) || levels.count(p);
          break;
        case JournalOp::kSavedFile:
        case JournalOp::kTempFile:
        case JournalOp::kPlacedFile:
          fits = is_below(p, out.target);
          break;
        case JournalOp::kTimes:
          fits = inside(p, out.target) || levels.count(p) || aboveLevels.count(p);
          break;
        default:
          break;
      }
    }
    if (!fits) {
      out.clean = false;
      break;
    }
    out.committed = out.committed || e.op == JournalOp::kCommitted;
    out.entries.push_back(e);
  }
  return out;
}

PlayBackResult play_back(const RunJournal& journal, const std::string& backupDir,
                         const PlayBackControl& control) {
  PlayBackResult result;
  const std::string& target = journal.target;
  const Plan plan = plan_of(journal);
  const std::string prefix = target == "/" ? "/" : target + "/";
  for (const JournalEntry* e : plan.stored) result.saved.push_back(e->path.substr(prefix.size()));
  if (journal.committed || target.empty()) {
    result.complete = journal.committed && journal.clean;
    return result;
  }
  bool complete = journal.clean;

  // Folders the run made. One that its record proves (the same inode) goes
  // whole, with whatever the run put in it, unless an old file returns
  // there; one without that proof, and a level outside the target, goes
  // only when it is empty once the run's files are gone.
  std::unordered_set<std::string> holdingOldFiles;
  for (const JournalEntry* e : plan.stored)
    for (std::string dir = parent_of(e->path); inside(dir, target) && dir.size() > 1;
         dir = parent_of(dir))
      if (!holdingOldFiles.insert(dir).second) break;
  std::unordered_set<std::string> whole;
  std::vector<std::string> ifEmpty;
  for (const std::string& dir : plan.made) {
    struct stat64 st;
    if (!look(dir, st) || !S_ISDIR(st.st_mode)) continue;
    auto proof = plan.madeInode.find(dir);
    const bool oldFileReturns = holdingOldFiles.count(dir) != 0;
    if (inside(dir, target) && proof != plan.madeInode.end() && proof->second == st.st_ino &&
        !oldFileReturns)
      whole.insert(dir);
    else
      ifEmpty.push_back(dir);
  }
  // Only the outermost of those is removed; what lies below goes with it.
  auto goesWithFolder = [&whole](std::string path) {
    for (path = parent_of(path); path.size() > 1; path = parent_of(path))
      if (whole.count(path)) return true;
    return false;
  };
  std::vector<std::string> outermost;
  for (const std::string& dir : plan.made)
    if (whole.count(dir) && !goesWithFolder(dir)) outermost.push_back(dir);

  Steps steps(control, plan.temps.size() + plan.fresh.size() + outermost.size() +
                           plan.stored.size() + ifEmpty.size() + plan.times.size());
  auto stopped = [&result]() {
    result.stopped = true;
    return result;
  };

  // 1. Temporary files: their names carry the run's own mark.
  for (const std::string& temp : plan.temps) {
    if (!steps.next()) return stopped();
    struct stat64 st;
    if (goesWithFolder(temp) || !look(temp, st)) continue;
    if (S_ISREG(st.st_mode) && st.st_uid == geteuid()) file_ops().unlink(AT_FDCWD, temp, false);
  }
  // 2. New files, when they are still the ones the run wrote.
  for (const std::string& file : plan.fresh) {
    if (!steps.next()) return stopped();
    struct stat64 st;
    if (goesWithFolder(file) || !look(file, st)) continue;
    const std::vector<uint64_t>& inodes = plan.placed.at(file);
    if (S_ISREG(st.st_mode) && std::count(inodes.begin(), inodes.end(), st.st_ino))
      file_ops().unlink(AT_FDCWD, file, false);
  }
  // 3. Folders proven the run's, last made first.
  for (auto dir = outermost.rbegin(); dir != outermost.rend(); ++dir) {
    if (!steps.next()) return stopped();
    FileSystem::RemoveDirectory(widen_lib(*dir));
    if (path_exists(*dir)) complete = false;
  }
  // 4. The old files, back where they were, over what the run wrote there.
  // A file that still has the journaled inode and change time never left (a
  // move across file systems cut short): the copy in the backup goes instead.
  for (const JournalEntry* e : plan.stored) {
    if (!steps.next()) return stopped();
    const std::string saved = backupDir + e->path.substr(prefix.size());
    if (!path_exists(saved)) continue;
    struct stat64 st;
    const bool present = look(e->path, st);
    if (present && st.st_ino == e->inode && st.st_ctim.tv_sec == e->sec[0] &&
        st.st_ctim.tv_nsec == e->nsec[0]) {
      file_ops().unlink(AT_FDCWD, saved, false);
      continue;
    }
    auto placed = plan.placed.find(e->path);
    const bool ours = present && S_ISREG(st.st_mode) && placed != plan.placed.end() &&
                      std::count(placed->second.begin(), placed->second.end(), st.st_ino);
    if (present && !ours) {
      complete = false;  // something else took its place: the old file stays in the backup
      continue;
    }
    FileSystem::MoveFile(widen_lib(saved), widen_lib(e->path));
    if (path_exists(saved) || !path_exists(e->path)) complete = false;
  }
  // 5. Folders without proof, and the levels outside the target, when empty;
  // the innermost first.
  for (auto dir = ifEmpty.rbegin(); dir != ifEmpty.rend(); ++dir) {
    if (!steps.next()) return stopped();
    int error = file_ops().unlink(AT_FDCWD, *dir, true);
    if (error != 0 && error != ENOENT && inside(*dir, target)) complete = false;
  }
  // 6. The times of the folders that existed before, last of all: every
  // change inside them is undone by now. Only to the folder itself.
  for (const JournalEntry* e : plan.times) {
    if (!steps.next()) return stopped();
    struct stat64 st;
    if (file_ops().stat(AT_FDCWD, e->path, st, true) != 0 || !S_ISDIR(st.st_mode) ||
        st.st_ino != e->inode)
      continue;
    struct timespec times[2] = {{time_t(e->sec[0]), e->nsec[0]}, {time_t(e->sec[1]), e->nsec[1]}};
    file_ops().setTimes(AT_FDCWD, e->path, times, true);
  }
  result.complete = complete;
  return result;
}
