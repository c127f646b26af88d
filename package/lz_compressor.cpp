#include "package/lz_compressor.h"

#include <errno.h>
#include <sys/mman.h>

#include <cstdint>

#include "compat/file_system.h"

namespace {

// Writes decoded output to the destination handle. A write that fails
// stops all further writing, so a destination that could not take every
// byte ends where the fault happened (the reader's size checks then refuse
// it) instead of silently closing the gap.
class HandleSink : public InflateSink {
 public:
  explicit HandleSink(HANDLE handle) : m_handle(handle) {}
  void write(const uint8_t* data, size_t size) override {
    while (size != 0 && !m_failed) {
      unsigned written = 0;
      FileSystem::WriteFile(m_handle, data, static_cast<unsigned>(size), &written, nullptr);
      if (written == 0 || written == 0xFFFFFFFFu) {
        m_failed = true;
        break;
      }
      data += written;
      size -= written;
    }
  }

 private:
  HANDLE m_handle;
  bool m_failed = false;
};

int fd_of(HANDLE h) { return static_cast<int>(reinterpret_cast<intptr_t>(h)); }

}  // namespace

unsigned LZCompressor::pack(const std::u16string&, const std::u16string&) { return 1; }

unsigned LZCompressor::unpack(const std::u16string& src, const std::u16string& dst) {
  return unpack(src, dst, default_inflate_engine(), kBufferSize);
}

unsigned LZCompressor::unpack(const std::u16string& src, const std::u16string& dst,
                              InflateEngine engine, size_t chunkSize) {
  HANDLE in = INVALID_HANDLE_VALUE;
  unsigned code = FileSystem::CreateFile(src, GENERIC_READ, 0, OPEN_EXISTING, in);
  if (code != 0) return code;
  HANDLE out = INVALID_HANDLE_VALUE;
  code = FileSystem::CreateFile(dst, GENERIC_WRITE, 0, CREATE_ALWAYS, out);
  if (code != 0) {
    FileSystem::CloseHandle(in);
    return code;
  }

  long high = 0;
  uint32_t low = FileSystem::SetFilePointer(in, 0, &high, FILE_END);
  uint64_t size = (uint64_t(uint32_t(high)) << 32) | low;
  if (low == 0xFFFFFFFFu && uint32_t(high) == 0xFFFFFFFFu) size = 0;  // seek failed: not a file

  const uint8_t* mapping = nullptr;
  if (size != 0) {
    void* m = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd_of(in), 0);
    if (m == MAP_FAILED) {
      code = setLastErrorByErrNo(errno);
      FileSystem::CloseHandle(out);
      FileSystem::CloseHandle(in);
      return code;
    }
    madvise(m, size, MADV_SEQUENTIAL);
    mapping = static_cast<const uint8_t*>(m);
  }

  HandleSink sink(out);
  InflateOutcome outcome = inflate_stream(mapping, size, sink, engine, chunkSize);

  FileSystem::CloseHandle(out);
  FileSystem::CloseHandle(in);
  if (mapping) munmap(const_cast<uint8_t*>(mapping), size);
  return outcome.code;
}
