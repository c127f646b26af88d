// Seconds on the monotonic clock, for progress displays and timings.
#pragma once

#include <time.h>

inline double now_seconds() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}
