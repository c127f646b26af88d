// What the user is told about a start or a run, for both front ends (the
// wizard's pages and boxes and the run without a display): the engine and
// the package reader publish phases and statuses, the texts are chosen here.
// No GTK here.
#pragma once

#include <string>

#include "compat/status.h"
#include "install/install_process_data.h"

// The text for a start that cannot go on: "IDS_ERROR_NOSOURCE" when there
// is no package; "IDS_ERROR_NOSPACE" when the temporary directory has too
// little room, found before unpacking or when it fills up while the package
// is unpacked; "IDS_ERROR_DAMAGEDSOURCE" for everything else, a package that
// cannot be read included (its reason is in the status).
const char* start_failure_key(const Status& status);

// The text for a run that could not start (InstallSession::start was
// false): "IDS_INSTALL_ERROR" when no worker thread could be started,
// "IDS_SETUP_EMPTYTARGET" for the empty target.
const char* refused_run_key(const Status& status);

// What a run's published state says: the file being installed while it
// copies, else the text of its phase ("IDS_PREPARECOPY",
// "IDS_INSTALL_FINISH", "IDS_INSTALL_ERROR", "IDS_CANCEL_FINISH").
std::u16string run_state_text(RunPhase phase, const std::u16string& path);

// `text`, and on the line below it what failed, where and why (describe());
// `text` alone when the status names neither a path nor a system error.
std::u16string with_cause(const std::u16string& text, const Status& status);
