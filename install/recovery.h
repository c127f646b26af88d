// Finishing the rollback of runs that died part-way (killed, crashed, the
// session ended, the machine stopped): their journals are found in the
// temporary directory and played back.
#pragma once

#include <string>
#include <vector>

#include "install/play_back.h"

struct RecoveredRun {
  std::u16string targetDir;  // the run's target (folded); empty when the journal names none
  std::u16string backupDir;  // its backup directory, ending in "/"
  bool complete = false;     // false: not everything could be undone; the backup is kept
};

struct RecoveryReport {
  std::vector<RecoveredRun> runs;  // one per journal played back, in the order found
  bool stopped = false;            // an interrupt stopped it; the next start goes on
};

// Plays back the journal of every interrupted run of this user: each
// "zqstpN" directory in the temporary directory that is this user's (not a
// link) and locked by no live run. A journal whose target another run holds
// is left for later. When the target is back as it was and the backup holds
// nothing the journal does not account for, the backup directory goes;
// otherwise it is kept, marked, reported once and never played back again.
// A backup directory that holds nothing but an empty journal, or nothing at
// all, goes without a word (its run changed nothing), and so does the backup
// of a run that had committed.
RecoveryReport recover_interrupted_runs(const PlayBackControl& control = PlayBackControl());
