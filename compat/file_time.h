// FILETIME: 100-ns ticks since 1601-01-01 00:00:00 UTC, and its conversions
// to and from the POSIX clock (seconds since 1970). The one place that knows
// the distance between the two epochs.
#pragma once

#include <cstdint>

// Seconds from 1601-01-01 to 1970-01-01, and FILETIME ticks per second.
constexpr int64_t kFileTimeEpochOffset = 11644473600;
constexpr uint64_t kFileTimeTicksPerSecond = 10000000;

// 100-ns intervals since 1601-01-01 00:00:00 UTC, low word first.
struct _FILETIME {
  uint32_t dwLowDateTime = 0;
  uint32_t dwHighDateTime = 0;
};
using FILETIME = _FILETIME;

// Seconds since 1970 <-> FILETIME (64-bit, both directions exact to the second).
_FILETIME EpochToFileTime(const long& seconds);
long FileTimeToEpoch(const _FILETIME& ft);
// The same with the sub-second part kept (nanoseconds are rounded down to 100 ns).
_FILETIME TimespecToFileTime(int64_t seconds, long nanoseconds);
void FileTimeToTimespec(const _FILETIME& ft, int64_t& seconds, long& nanoseconds);
uint64_t FileTimeToU64(const _FILETIME& ft);
_FILETIME U64ToFileTime(uint64_t value);
