// Undoing a run from its journal: the same code for a rollback inside the
// run and for the recovery of a run that died. Only what whole, checked
// records prove is undone; every path is folded and must lie where the run
// could have acted (inside its target, or on the levels its target's
// spelling made). Doing it again, after it was done or cut short, changes
// nothing more.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "install/journal.h"

// A journal read back and checked: the records up to the first that is
// damaged, cut short, or names a path outside what its run could touch.
struct RunJournal {
  std::string target;                 // folded target of the run; empty when unknown
  std::vector<std::string> levels;    // folded levels the target's spelling names
  std::vector<JournalEntry> entries;  // the trusted records, in order
  bool clean = false;                 // nothing was cut off after them
  bool committed = false;             // the run had succeeded
};
RunJournal check_journal(const JournalText& text);

struct PlayBackControl {
  // Called now and then with the steps done and the steps in all.
  std::function<void(size_t done, size_t total)> progress;
  // Raised: stop before the next step.
  const std::atomic<bool>* stop = nullptr;
};

struct PlayBackResult {
  // The target is as it was before the run: the journal was whole, every
  // old file is back, and nothing the run made is left.
  bool complete = false;
  bool stopped = false;  // stopped between two steps; doing it again finishes it
  // The old files the journal accounts for, relative to the backup directory.
  std::vector<std::string> saved;
};

// Undoes the run that `journal` records, whose old files were moved into
// `backupDir` (ending in "/"). A committed journal undoes nothing.
PlayBackResult play_back(const RunJournal& journal, const std::string& backupDir,
                         const PlayBackControl& control = PlayBackControl());
