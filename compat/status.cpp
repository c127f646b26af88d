#include "compat/status.h"

#include <string.h>

#include "compat/text.h"

namespace {

const char* phrase(Operation operation) {
  switch (operation) {
    case Operation::kNone:
      return "failed";
    case Operation::kFindPackage:
      return "cannot find the package";
    case Operation::kCheckSpace:
      return "not enough free space for";
    case Operation::kCreateWorkFile:
      return "cannot create the working file";
    case Operation::kUnpack:
      return "cannot unpack";
    case Operation::kReadCatalogue:
      return kDamagedPackage;
    case Operation::kCheckTemp:
      return "cannot keep backups in";
    case Operation::kStartRun:
      return "cannot prepare the installation into";
    case Operation::kLockTarget:
      return "another installation is running into";
    case Operation::kCreateDirectory:
      return "cannot create the folder";
    case Operation::kSaveOldFile:
      return "cannot move aside";
    case Operation::kCreateFile:
      return "cannot create";
    case Operation::kReadPackage:
      return "cannot read the package contents for";
    case Operation::kWriteFile:
      return "cannot write";
    case Operation::kCheckContents:
      return "damaged contents for";
    case Operation::kPlaceFile:
      return "cannot put in place";
    case Operation::kFlush:
      return "cannot write to disk";
    case Operation::kRollback:
      return "could not put back";
    case Operation::kReadStarter:
      return "cannot read";
    case Operation::kWriteStarter:
      return "cannot write";
    case Operation::kStartWorker:
      return "cannot start the installation";
  }
  return "failed";
}

}  // namespace

Status failure(unsigned code, Operation operation, std::u16string path, int sysError,
               std::string detail) {
  Status status;
  status.code = code ? code : 87;
  status.operation = operation;
  status.path = std::move(path);
  status.sysError = sysError;
  status.detail = std::move(detail);
  return status;
}

std::string describe(const Status& status) {
  if (status.ok()) return std::string();
  std::string line = phrase(status.operation);
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
