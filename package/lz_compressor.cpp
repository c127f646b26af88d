#include "package/lz_compressor.h"

#include <errno.h>
#include <sys/mman.h>

#include <atomic>
#include <cstdint>

#include "compat/file_system.h"

namespace {

// Writes decoded output to the destination handle. A write that fails
// stops all further writing, so a destination that could not take every
// byte ends where the fault happened (the reader's size checks then refuse
// it) instead of silently closing the gap.
// A stop request ends the writing the same way.
class HandleSink : public InflateSink {
 public:
  HandleSink(HANDLE handle, const std::atomic<bool>* stop) : m_handle(handle), m_stop(stop) {}
  void write(const uint8_t* data, size_t size) override {
    if (m_stop && *m_stop) m_stopped = true;
    while (size != 0 && !m_stopped && m_error == 0) {
      unsigned written = 0;
      FileSystem::WriteFile(m_handle, data, static_cast<unsigned>(size), &written, nullptr);
      if (written == 0 || written == 0xFFFFFFFFu) {
        m_error = written == 0 ? ENOSPC : errno;
        break;
      }
      data += written;
      size -= written;
    }
  }
  bool stopped() const { return m_stopped; }
  int error() const { return m_error; }

 private:
  HANDLE m_handle;
  const std::atomic<bool>* m_stop;
  bool m_stopped = false;
  int m_error = 0;
};

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
  FileSystem::CloseHandle(in);
  HANDLE out = INVALID_HANDLE_VALUE;
  code = FileSystem::CreateFile(dst, GENERIC_WRITE, 0, CREATE_ALWAYS, out);
  if (code != 0) return code;
  UnpackOptions options;
  options.engine = engine;
  options.chunkSize = chunkSize;
  code = unpack(src, out, options);
  FileSystem::CloseHandle(out);
  return code;
}

unsigned LZCompressor::unpack(const std::u16string& src, HANDLE out, const UnpackOptions& options) {
  HANDLE in = INVALID_HANDLE_VALUE;
  unsigned code = FileSystem::CreateFile(src, GENERIC_READ, 0, OPEN_EXISTING, in);
  if (code != 0) return code;

  uint64_t size = seek_file(in, 0, FILE_END);
  if (size == UINT64_MAX) size = 0;  // seek failed: not a file

  const uint8_t* mapping = nullptr;
  if (size != 0) {
    void* m = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd_of(in), 0);
    if (m == MAP_FAILED) {
      code = setLastErrorByErrNo(errno);
      FileSystem::CloseHandle(in);
      return code;
    }
    madvise(m, size, MADV_SEQUENTIAL);
    mapping = static_cast<const uint8_t*>(m);
  }

  HandleSink sink(out, options.stop);
  InflateOutcome outcome = inflate_stream(mapping, size, sink, options.engine, options.chunkSize);

  FileSystem::CloseHandle(in);
  if (mapping) munmap(const_cast<uint8_t*>(mapping), size);
  if (options.writeError) *options.writeError = sink.error();
  if (sink.stopped()) return ERROR_CANCELLED;
  if (sink.error() != 0) return ERROR_CANTWRITE;
  return outcome.code;
}
