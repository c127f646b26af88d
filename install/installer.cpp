#include "install/installer.h"

#include "texts/resources.h"
#include "compat/text.h"
#include "install/install_process_data.h"

namespace {

// A write that moved fewer bytes than asked (WriteFile reports it only
// through the count) and a read that found no bytes while some were owed.
constexpr unsigned kShortWriteError = ERROR_CANTWRITE;
constexpr unsigned kTruncatedSourceError = ERROR_INVALID_DATA;

unsigned percent_of(size_t index, size_t count) {
  return static_cast<unsigned>(uint64_t(index) * 100 / count);
}

// Positions the working file at the 64-bit `offset`. SetFilePointer adds the
// sign-extended low half to high * 2^32, so the high half is chosen to
// compensate for a low half with its top bit set.
unsigned seek_to(HANDLE file, uint64_t offset) {
  long low = static_cast<int32_t>(static_cast<uint32_t>(offset));
  long high = static_cast<long>((int64_t(offset) - int64_t(low)) >> 32);
  uint32_t reachedLow = FileSystem::SetFilePointer(file, low, &high, FILE_BEGIN);
  uint64_t reached = (uint64_t(uint32_t(high)) << 32) | reachedLow;
  if (reached == offset) return 0;
  unsigned code = FileSystem::GetLastError();
  return code ? code : ERROR_INVALID_PARAMETER;
}

// Copies `size` bytes of the working file, from where it stands, into
// `target` through the reader's buffer. Every read asks for the whole buffer;
// only what belongs to the entry is written.
unsigned copy_contents(PackageReader& reader, uint64_t size, HANDLE target) {
  uint64_t remaining = size;
  while (remaining > 0) {
    unsigned got = 0;
    if (unsigned code = FileSystem::ReadFile(reader.handle, reader.buffer.get(), reader.bufferSize,
                                             &got, nullptr))
      return code;
    if (got == 0) return kTruncatedSourceError;  // the working file ends early
    if (remaining < got) {
      got = static_cast<unsigned>(remaining);
      remaining = 0;
    } else {
      remaining -= got;
    }
    unsigned written = 0;
    FileSystem::WriteFile(target, reader.buffer.get(), got, &written, nullptr);
    if (written != got) return kShortWriteError;
  }
  return 0;
}

}  // namespace

unsigned Installer::run(InstallProcessData* data) {
  m_data = data;
  PackageReader* reader = nullptr;
  std::u16string templatesDir;
  data->get(reader, templatesDir);

  if (unsigned code = m_rollback.start(templatesDir)) return stopOnError(code, 0);
  if (!reader) return stopOnError(ERROR_INVALID_PARAMETER, 0);

  const size_t count = reader->files.size();
  for (size_t i = 0; i < count; ++i) {
    const FileEntry& entry = reader->files[i];
    std::u16string name = entry.name;
    replace_all(name, kBadPathSeparator, kPathSeparator);
    const std::u16string target = templatesDir + name;
    const unsigned percent = percent_of(i, count);
    data->setInstallState(0, target, percent);

    if (compareFiles(target, entry.time)) {
      if (unsigned code = installEntry(*reader, entry, target)) return stopOnError(code, percent);
    }

    if (data->isCancelled()) {
      unsigned code = m_rollback.rollback(ERROR_CANCELLED);
      data->setInstallState(code, LoadResString("IDS_CANCEL_FINISH"), percent);
      return code;
    }
  }

  m_rollback.stop();
  data->setInstallState(0, LoadResString("IDS_INSTALL_FINISH"), 100);
  Sleep(m_finishPauseMs);
  return 0;
}

unsigned Installer::installEntry(PackageReader& reader, const FileEntry& entry,
                                 const std::u16string& target) {
  unsigned code = m_rollback.storeRBFile(target);
  if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND)
    m_rollback.addRBFile(target);  // nothing stood there: the file is this run's
  else if (code != 0)
    return code;

  size_t slash = target.rfind(u'/');
  if (slash != std::u16string::npos && slash > 0) {
    if ((code = m_rollback.makeDirectoryTree(target.substr(0, slash)))) return code;
  }

  HANDLE file = INVALID_HANDLE_VALUE;
  if ((code = FileSystem::CreateFile(target, GENERIC_WRITE, 0, CREATE_ALWAYS, file))) return code;
  if (file == INVALID_HANDLE_VALUE) return 0;

  code = seek_to(reader.handle, entry.offset);
  if (code == 0) code = copy_contents(reader, entry.size, file);
  if (code == 0) {
    FileSystem::SetEndOfFile(file);
    FileSystem::SetFileTime(file, nullptr, nullptr, &entry.time);
  }
  FileSystem::CloseHandle(file);  // also after a failure, so a deleted copy frees its space
  return code;
}

bool Installer::compareFiles(const std::u16string& path, const _FILETIME& packageTime) {
  // Anything but a regular file is never opened here (a FIFO would block):
  // it is handed on to be saved or refused.
  if (path_kind(path) != PathKind::kFile) return true;
  HANDLE file = INVALID_HANDLE_VALUE;
  if (FileSystem::CreateFile(path, GENERIC_READ, 0, OPEN_EXISTING, file) != 0 ||
      file == INVALID_HANDLE_VALUE)
    return true;
  _FILETIME installed;
  FileSystem::GetFileTime(file, nullptr, nullptr, &installed);
  FileSystem::CloseHandle(file);
  return FileTimeToU64(installed) < FileTimeToU64(packageTime);
}

unsigned Installer::stopOnError(unsigned code, unsigned percent) {
  if (code == 0) code = ERROR_INVALID_PARAMETER;  // a failure is never reported as success
  m_failure = ::failure(code, Step::kNone);
  m_data->setInstallState(code, LoadResString("IDS_INSTALL_ERROR"), static_cast<int>(percent));
  return m_rollback.rollback(code);
}
