// The outcome of one operation, carried upward unchanged: success, or the
// failure's code, the operation that failed, the path it failed on and the
// system's reason. Every layer above the file handles reports through it;
// only the outermost layer turns it into text for the user.
#pragma once

#include <string>

// What was being done when a failure happened. Each operation has one phrase
// in describe() ("cannot create", "cannot unpack", ...).
enum class Operation : unsigned char {
  kNone,
  kFindPackage,     // the package file beside the installer
  kCheckSpace,      // free space of the temporary directory
  kCreateWorkFile,  // the working file in the temporary directory
  kUnpack,          // inflating the package into the working file
  kReadCatalogue,   // the working file's header and catalogue
  kCheckTemp,       // the temporary directory is not safe for backups
  kStartRun,        // backup directory, journal, lock of the target
  kLockTarget,      // another run holds the target directory
  kCreateDirectory,
  kSaveOldFile,  // moving an installed file aside
  kCreateFile,
  kReadPackage,  // reading contents out of the working file
  kWriteFile,
  kCheckContents,  // a file's contents against the package's check value
  kPlaceFile,      // renaming a written file into place
  kFlush,          // putting the installed files on disk
  kRollback,       // something could not be put back
  kReadStarter,
  kWriteStarter,
  kStartWorker,
};

struct Status {
  unsigned code = 0;                       // Win32-style code; 0 is success
  Operation operation = Operation::kNone;  // what failed
  std::u16string path;                     // what it failed on; may be empty
  int sysError = 0;                        // errno of the failure, 0 when there is none
  std::string detail;                      // a reason in words when there is no errno

  bool ok() const { return code == 0; }
};

// What a report of a damaged package says (the installer's and the tools').
inline constexpr char kDamagedPackage[] = "damaged package";

// A failure; `code` 0 is stored as 87 so that a failure never reads as success.
Status failure(unsigned code, Operation operation, std::u16string path = std::u16string(),
               int sysError = 0, std::string detail = std::string());

// One line for people who read logs and standard error: the operation's phrase,
// the path and the reason, e.g. "cannot create /t/blocker/a.txt: Not a
// directory". Empty for success.
std::string describe(const Status& status);
