#include "ui/failure_text.h"

#include <errno.h>

#include "compat/text.h"

const char* start_failure_key(const Status& status) {
  switch (status.operation) {
    case Operation::kFindPackage:
      return "IDS_ERROR_NOSOURCE";
    case Operation::kCheckSpace:
      return "IDS_ERROR_NOSPACE";
    case Operation::kUnpack:
      if (status.sysError == ENOSPC || status.sysError == EDQUOT) return "IDS_ERROR_NOSPACE";
      return "IDS_ERROR_DAMAGEDSOURCE";
    default:
      return "IDS_ERROR_DAMAGEDSOURCE";
  }
}

std::u16string with_cause(const std::u16string& text, const Status& status) {
  if (status.ok() || (status.path.empty() && status.sysError == 0)) return text;
  return text + u"\n" + widen_lib(describe(status));
}
