#include "compat/file_finder.h"

#include <fnmatch.h>

#include "compat/text.h"

FileFinder::~FileFinder() { close(); }

bool FileFinder::reset(const std::u16string& pattern) {
  m_pattern = narrow_lib(pattern);
  size_t slash = m_pattern.rfind('/');
  if (slash == std::string::npos) {
    m_directory = m_mask = m_pattern;
  } else {
    m_directory = m_pattern.substr(0, slash);
    m_mask = m_pattern.substr(slash + 1);
  }
  // The directory is what stands before the last "/"; for "/name" that is
  // the empty path, which opendir refuses.
  m_dir = opendir(m_directory.c_str());
  if (!m_dir) return false;
  return next();
}

bool FileFinder::next() {
  if (!m_dir) return false;
  while (dirent* entry = readdir(m_dir)) {
    // The mask is a pattern and nothing else: "a[1]" names "a1", never an
    // entry spelled "a[1]". A mask without pattern characters matches only
    // the name spelled like it, so a literal path finds its one entry.
    int match = fnmatch(m_mask.c_str(), entry->d_name, FNM_NOESCAPE);
    if (match == FNM_NOMATCH) continue;
    if (match != 0) return false;
    m_name = entry->d_name;
    // An entry whose status cannot be read (a link to nothing) ends the
    // enumeration: a literal path to it is not found.
    std::string path = m_directory + "/" + m_name;
    return stat(path.c_str(), &m_stat) == 0;
  }
  close();
  return false;
}

std::u16string FileFinder::name() const { return m_dir ? widen_lib(m_name) : std::u16string(); }

unsigned FileFinder::attributes() const {
  if (!m_dir) return 0;
  return (m_stat.st_mode & 0x4000) ? FILE_ATTRIBUTE_DIRECTORY : 0;
}

void FileFinder::close() {
  if (m_dir) closedir(m_dir);
  m_dir = nullptr;
}
