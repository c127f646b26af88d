// Finishing the rollback of runs that died part-way (killed, crashed, the
// session ended): their journals are found in the temporary directory and
// played back.
#pragma once

#include <string>
#include <vector>

struct RecoveredRun {
  std::u16string targetDir;  // the target the run was installing into
  std::u16string backupDir;  // its backup directory, ending in "/"
  bool complete = false;     // false: something could not be put back; the backup is kept
};

// Plays back the journal of every interrupted run of this user: each
// "zqstpN" directory in the temporary directory that is this user's (not a
// link), holds a journal, and is locked by no live run. The target then is
// what it was before that run, and the backup directory is removed; a
// journal that cannot be fully played back is kept with its directory. A
// run still alive, and a target another run holds, are left alone. A backup
// directory that is empty (its run died before its journal existed) is
// removed, and so is the backup of a run that had committed before it died.
// One entry per journal played back, in the order found.
std::vector<RecoveredRun> recover_interrupted_runs();
