// What the installer learns from the starter configuration before the wizard
// starts: the known template directories, which files to write back, and the
// directory to propose.
#pragma once

#include <string>
#include <vector>

#include "compat/status.h"

struct StarterState {
  std::vector<std::u16string> templateDirs;  // the list read at start
  bool writeOrdinary = false;                // write back with set_tmplts_list(list, false)
  bool writeBase = false;                    // write back with set_tmplts_list(list, true)
  std::u16string proposal;                   // proposed target directory (already cleaned)
};

// Reads the template directories from the ordinary per-user starter file
// when it exists, else from the "base" one. A file exists when its status
// can be read: something other than a regular file in its place exists but
// lists nothing; a link that leads nowhere is missing. writeOrdinary is set
// when the ordinary file exists; writeBase when it does not and the base
// file gave a non-empty list; with no starter configuration nothing is to be
// written.
// The proposal is the first listed directory where a file can be created,
// else zq_app_data_dir(false) + "/tmplts", cleaned by clean_proposal.
// GUI thread only (it owns the configuration files).
StarterState read_starter_state();

// Cleans a proposed directory: empty when it holds "http://", "https://" or
// "ftp://"; the first "file://" removed; every "\n" and "\r" removed.
std::u16string clean_proposal(std::u16string proposal);

// Records `targetDir` (one trailing "/" or "\\" removed) in the files `state`
// names: each is read again just before it is written, and its list becomes
// the target followed by the directories it lists at that moment (duplicates
// removed), so entries added while the wizard was open are kept.
// `state.templateDirs` becomes the list written (with nothing to write: the
// target in front of the list read at start). Success, or the failure of the
// write naming the file (code 1 or 2; the old file then stays intact).
Status record_template_dir(StarterState& state, const std::u16string& targetDir);
