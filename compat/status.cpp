#include "compat/status.h"

#include <string.h>

#include "compat/text.h"

namespace {

const char* phrase(Step step) {
  switch (step) {
    case Step::kNone: return "failed";
    case Step::kFindPackage: return "cannot find the package";
    case Step::kCheckSpace: return "not enough free space for";
    case Step::kCreateWorkFile: return "cannot create the working file";
    case Step::kUnpack: return "cannot unpack";
    case Step::kReadCatalogue: return "damaged package";
    case Step::kCheckTemp: return "cannot keep backups in";
    case Step::kStartRun: return "cannot prepare the installation into";
    case Step::kLockTarget: return "another installation is running into";
    case Step::kCreateDirectory: return "cannot create the folder";
    case Step::kSaveOldFile: return "cannot move aside";
    case Step::kCreateFile: return "cannot create";
    case Step::kReadPackage: return "cannot read the package contents for";
    case Step::kWriteFile: return "cannot write";
    case Step::kCheckContents: return "damaged contents for";
    case Step::kPlaceFile: return "cannot put in place";
    case Step::kFlush: return "cannot write to disk";
    case Step::kRollback: return "could not put back";
    case Step::kReadStarter: return "cannot read";
    case Step::kWriteStarter: return "cannot write";
    case Step::kStartWorker: return "cannot start the installation";
  }
  return "failed";
}

}  // namespace

Status failure(unsigned code, Step step, std::u16string path, int sysError, std::string detail) {
  Status status;
  status.code = code ? code : 87;
  status.step = step;
  status.path = std::move(path);
  status.sysError = sysError;
  status.detail = std::move(detail);
  return status;
}

std::string describe(const Status& status) {
  if (status.ok()) return std::string();
  std::string line = phrase(status.step);
  if (!status.path.empty()) line += " " + narrow_lib(status.path);
  if (status.sysError != 0) {
    char buffer[256];
    line += ": ";
    line += strerror_r(status.sysError, buffer, sizeof buffer);
  } else if (!status.detail.empty()) {
    line += ": " + status.detail;
  }
  return line;
}
