// Measuring aids for the benchmark driver: heap bytes in use and their peak
// (the driver replaces malloc and friends), the verbs of the shell commands
// the process starts, and the process's resident-set figures.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace bench {

// Bytes currently allocated through malloc, calloc, realloc, the aligned
// allocators and operator new (usable sizes, so allocator rounding counts).
uint64_t heap_in_use();
// Highest heap_in_use() since the last reset_heap_peak().
uint64_t heap_peak();
// Starts a new peak window at the current use.
void reset_heap_peak();

// First word of every command started through /bin/sh -c with posix_spawn
// ("mkdir", "mv", "rm", ...), counted since the last reset_spawned().
std::map<std::string, unsigned long> spawned_verbs();
void reset_spawned();

// Resident-set figures of this process in KiB from /proc/self/status
// ("VmRSS", "VmHWM"); 0 when unreadable.
uint64_t status_kib(const char* field);
// Lowers the VmHWM peak to the current RSS, so the next reading is the peak of
// what follows. False when the kernel refuses it.
bool reset_rss_peak();

}  // namespace bench
