// Directory enumeration in the FindFirstFile/FindNextFile manner.
// reset("dir/mask") lists the entries of "dir" whose names match the shell
// pattern "mask" (fnmatch; "*" also matches "." and ".."); a literal path
// finds its one entry. attributes() describes the entry found, by its status;
// an entry whose status cannot be read (a link to nothing) ends the listing,
// so a literal path to it is not found. The directory is the text before the
// last "/", so "/name" (directory "") finds nothing.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <string>

class FileFinder {
 public:
  FileFinder() = default;
  ~FileFinder();
  FileFinder(const FileFinder&) = delete;
  FileFinder& operator=(const FileFinder&) = delete;

  // Starts an enumeration; true when a first matching entry was found.
  bool reset(const std::u16string& pattern);
  // Advances to the next matching entry; false at the end (the stream
  // closes) or at an entry whose status cannot be read.
  bool next();
  // Name (not path) of the current entry; empty when closed.
  std::u16string name() const;
  // 0x10 for a directory, else 0 (0 when closed).
  unsigned attributes() const;
  void close();

 private:
  DIR* m_dir = nullptr;
  std::string m_mask;
  std::string m_directory;
  std::string m_pattern;
  std::string m_name;
  struct stat m_stat {};
};

constexpr unsigned FILE_ATTRIBUTE_DIRECTORY = 0x10;
