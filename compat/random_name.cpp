#include "compat/random_name.h"

#include <unistd.h>

#include <cstdint>
#include <random>

std::string random_suffix() {
  static const char kChars[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  thread_local std::mt19937_64 rng{std::random_device{}() ^ (uint64_t(getpid()) << 32)};
  std::string s(6, 'A');
  for (char& c : s) c = kChars[rng() % (sizeof(kChars) - 1)];
  return s;
}
