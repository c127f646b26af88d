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
    // A name equal to the mask matches even when it holds pattern characters
    // such as '[', so a literal path always finds its entry.
    if (m_mask != entry->d_name) {
      int match = fnmatch(m_mask.c_str(), entry->d_name, FNM_NOESCAPE);
      if (match == FNM_NOMATCH) continue;
      if (match != 0) return false;
    }
    m_name = entry->d_name;
    std::string path = m_directory + "/" + m_name;
    // A dangling link is still listed, as the entry it is.
    return stat(path.c_str(), &m_stat) == 0 || lstat(path.c_str(), &m_stat) == 0;
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
