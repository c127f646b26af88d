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
// when it exists, else from the "base" one. writeOrdinary is set when the
// ordinary file exists; writeBase when it does not and the base file gave a
// non-empty list; with no starter configuration nothing is to be written.
// The proposal is the first listed directory where a file can be created,
// else zq_app_data_dir(false) + "/tmplts", cleaned by clean_proposal.
// GUI thread only (it owns the configuration files).
StarterState read_starter_state();

// Cleans a proposed directory: empty when it holds "http://", "https://" or
// "ftp://"; the first "file://" removed; every "\n" and "\r" removed.
std::u16string clean_proposal(std::u16string proposal);

// Records `targetDir` at the front of `state.templateDirs` (one trailing "/"
// or "\\" removed) and writes the files `state` names. A failed write
// (the old file then stays intact) names the file it could not write.
Status record_template_dir(StarterState& state, const std::u16string& targetDir);
