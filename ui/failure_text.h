// What the user is told about a failure, for both front ends (the wizard's
// boxes and the run without a display). No GTK here.
#pragma once

#include <string>

#include "compat/status.h"

// The text for a start that cannot go on: "IDS_ERROR_NOSOURCE" when there
// is no package; "IDS_ERROR_NOSPACE" when the temporary directory has too
// little room, found before unpacking or when it fills up while the package
// is unpacked; "IDS_ERROR_DAMAGEDSOURCE" for everything else, a package that
// cannot be read included (its reason is in the status).
const char* start_failure_key(const Status& status);

// `text`, and on the line below it what failed, where and why (describe());
// `text` alone when the status names neither a path nor a system error.
std::u16string with_cause(const std::u16string& text, const Status& status);
