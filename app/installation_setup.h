// What every run does before its first page (or, without a display, before
// it installs): find and load the package, read the starter configuration.
#pragma once

#include <string>

#include "package/package_loader.h"
#include "starter/starter_state.h"

// Checks that `packagePath` names an existing package, reads the starter
// state (the proposed directory and what to write back) and loads the
// package into `package`. Returns "" on success, else the key of the text
// the user must be shown ("IDS_ERROR_NOSOURCE", "IDS_ERROR_NOSPACE",
// "IDS_ERROR_DAMAGEDSOURCE"); nothing is left in the temporary directory then.
std::string prepare_installation(const std::u16string& packagePath, PackageReader& package,
                                 StarterState& starter);
