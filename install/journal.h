// The on-disk journal of one run, kept in the run's backup directory. It is
// written ahead: each record is in the file before the change it describes
// is made, so a process that dies at any instant leaves a journal from which
// a later process can undo what the run did. Each record carries its own
// length and a CRC-32, so a record cut short or damaged ends the readable
// journal there, and nothing after it is trusted.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The journal's file name inside the backup directory.
extern const char kJournalName[];
// The journal's length mark beside it: how many bytes of the journal are on
// disk and their CRC-32, written after each flush of the journal. A journal
// shorter than its mark, or different in those bytes, was cut or damaged,
// even where the cut falls between two records.
extern const char kLengthMarkName[];
// A file in the backup directory whose presence says: this backup was kept
// because not everything could be put back; it is never played back again.
extern const char kKeptMarkName[];

enum class JournalOp : uint8_t {
  kTarget = 'T',         // the run's target, as spelled for mkdir -p (the first record)
  kTimes = 'M',          // an existing folder's inode and times before the run changed it
  kDirectory = 'D',      // a folder level about to be made (it did not exist)
  kDirectoryMade = 'E',  // the same level once made: its inode
  kSavedFile = 'S',      // an old file about to be moved aside: its inode and change time
  kTempFile = 'W',       // a temporary file about to be created beside its place
  kPlacedFile = 'P',     // a written file about to take its place: its inode, size and time
  kCommitted = 'C',      // the installed files are on disk: nothing to undo
};

struct JournalEntry {
  JournalOp op = JournalOp::kTarget;
  std::string path;         // the path's bytes as the system sees them; never holds a NUL
  uint64_t inode = 0;       // kTimes, kDirectoryMade, kSavedFile, kPlacedFile
  uint64_t size = 0;        // kPlacedFile: the file's size; kTarget: bytes of the existing prefix
  int64_t sec[2] = {0, 0};  // kTimes: access, modification; kSavedFile: [0] change;
  long nsec[2] = {0, 0};    //   kPlacedFile: [0] modification
  bool fresh = false;       // kPlacedFile: nothing stood at the path before (a new file)
};

// One record: length, CRC-32, then the fields.
std::string encode_entry(const JournalEntry& entry);

// The journal read back: every whole, checked record up to the first that is
// cut short or damaged. `clean` is false when bytes were left over after the
// last good record (a torn or damaged record, or garbage).
struct JournalText {
  std::vector<JournalEntry> entries;
  bool clean = true;
};
JournalText parse_journal(const std::string& bytes);

// Whether the journal `bytes` holds at least what the length mark `mark`
// (the mark file's bytes; empty when there is none) says was on disk.
bool journal_meets_mark(const std::string& bytes, const std::string& mark);

// The open journal of the running process.
class JournalFile {
 public:
  JournalFile() = default;
  JournalFile(const JournalFile&) = delete;
  JournalFile& operator=(const JournalFile&) = delete;
  ~JournalFile() { close(); }

  // Creates the journal and its length mark in the directory open as
  // `dirFd` (never through a link, never an existing file). 0 or errno.
  int create(int dirFd);
  bool isOpen() const { return m_fd >= 0; }
  // Appends the records with one write. 0 or errno (ENOSPC for a short write).
  int append(const std::vector<JournalEntry>& entries);
  // Puts what was appended on disk, then the length mark. 0 or errno.
  int flush();
  void close();

 private:
  int m_fd = -1;
  int m_markFd = -1;
  bool m_dirty = false;
  uint64_t m_length = 0;  // bytes appended
  uint32_t m_crc = 0;     // their CRC-32
};
