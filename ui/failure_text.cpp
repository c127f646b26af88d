#include "ui/failure_text.h"

#include <errno.h>

#include "compat/text.h"
#include "texts/resources.h"

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

const char* refused_run_key(const Status& status) {
  return status.operation == Operation::kStartWorker ? "IDS_INSTALL_ERROR"
                                                     : "IDS_SETUP_EMPTYTARGET";
}

std::u16string run_state_text(RunPhase phase, const std::u16string& path) {
  switch (phase) {
    case RunPhase::kPreparing:
      return LoadResString("IDS_PREPARECOPY");
    case RunPhase::kCopying:
      return path;
    case RunPhase::kFinished:
      return LoadResString("IDS_INSTALL_FINISH");
    case RunPhase::kFailed:
      return LoadResString("IDS_INSTALL_ERROR");
    case RunPhase::kCancelled:
      return LoadResString("IDS_CANCEL_FINISH");
  }
  return path;
}

std::u16string with_cause(const std::u16string& text, const Status& status) {
  if (status.ok() || (status.path.empty() && status.sysError == 0)) return text;
  return text + u"\n" + widen_lib(describe(status));
}
