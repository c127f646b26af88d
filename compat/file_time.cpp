#include "compat/file_time.h"

uint64_t FileTimeToU64(const _FILETIME& ft) {
  return (uint64_t(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}

_FILETIME U64ToFileTime(uint64_t value) {
  _FILETIME ft;
  ft.dwLowDateTime = static_cast<uint32_t>(value);
  ft.dwHighDateTime = static_cast<uint32_t>(value >> 32);
  return ft;
}

_FILETIME EpochToFileTime(const long& seconds) {
  return U64ToFileTime((uint64_t(int64_t(seconds)) + kFileTimeEpochOffset) *
                       kFileTimeTicksPerSecond);
}

long FileTimeToEpoch(const _FILETIME& ft) {
  return static_cast<long>(int64_t(FileTimeToU64(ft) / kFileTimeTicksPerSecond) -
                           kFileTimeEpochOffset);
}

_FILETIME TimespecToFileTime(int64_t seconds, long nanoseconds) {
  return U64ToFileTime((uint64_t(seconds) + kFileTimeEpochOffset) * kFileTimeTicksPerSecond +
                       uint64_t(nanoseconds / 100));
}

void FileTimeToTimespec(const _FILETIME& ft, int64_t& seconds, long& nanoseconds) {
  uint64_t ticks = FileTimeToU64(ft);
  seconds = int64_t(ticks / kFileTimeTicksPerSecond) - kFileTimeEpochOffset;
  nanoseconds = static_cast<long>(ticks % kFileTimeTicksPerSecond) * 100;
}
