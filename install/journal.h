// The on-disk journal of one run, kept in the run's backup directory. Each
// record is written (one write, appended) before the change it describes is
// made, so a process that dies at any instant leaves a journal from which a
// later process can undo everything the run did to the target.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The journal's file name inside the backup directory.
extern const char kJournalName[];

enum class JournalOp : char {
  kTarget = 'T',     // the run's target directory (the first record)
  kTimes = 'M',      // times of an existing directory before the run changed it
  kDirectory = 'D',  // a directory level about to be created
  kNewFile = 'N',    // a file about to be created where none was
  kSavedFile = 'S',  // an old file about to be moved aside into the backup
  kTempFile = 'W',   // a temporary file about to be created beside a target
  kCommitted = 'C',  // the installed files are on disk: nothing to undo
};

struct JournalEntry {
  JournalOp op = JournalOp::kTarget;
  std::u16string path;
  // kTimes: the directory's inode, access and modification time;
  // kSavedFile: the old file's inode and status-change time, which tell it
  // from a file written in its place.
  uint64_t inode = 0;
  int64_t sec[2] = {0, 0};
  long nsec[2] = {0, 0};
};

// One line: the operation, the numbers, the path with "\\", "\t" and "\n"
// escaped.
std::string encode_entry(const JournalEntry& entry);
// False for a line that is not a whole record.
bool decode_entry(const std::string& line, JournalEntry& entry);

// Every whole record of the journal text (a last line without its "\n" was
// cut short and is left out).
std::vector<JournalEntry> parse_journal(const std::string& text);

// The open journal of the running process.
class JournalFile {
 public:
  JournalFile() = default;
  JournalFile(const JournalFile&) = delete;
  JournalFile& operator=(const JournalFile&) = delete;
  ~JournalFile() { close(); }

  // Creates the journal in the directory open as `dirFd` (never through a
  // link, never an existing file). 0 or errno.
  int create(int dirFd);
  bool isOpen() const { return m_fd >= 0; }
  // Appends one record with one write. 0 or errno (ENOSPC for a short write).
  int append(const JournalEntry& entry);
  void close();

 private:
  int m_fd = -1;
};

// For tests: a function called after each record is written and before the
// change it describes is made, with the count of records this process has
// written so far. Null (the default) calls nothing.
using JournalStepHook = void (*)(unsigned recordsWritten);
void set_journal_step_hook(JournalStepHook hook);
