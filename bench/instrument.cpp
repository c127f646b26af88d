#include "bench/instrument.h"

#include <dlfcn.h>
#include <malloc.h>
#include <spawn.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

// The C library's own allocator entry points, which the replacements below
// forward to.
extern "C" {
void* __libc_malloc(size_t size);
void __libc_free(void* p);
void* __libc_calloc(size_t n, size_t size);
void* __libc_realloc(void* p, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<int64_t> g_inUse{0};
std::atomic<int64_t> g_peak{0};

void note_alloc(void* p) {
  if (!p) return;
  int64_t now = g_inUse.fetch_add(int64_t(malloc_usable_size(p))) + int64_t(malloc_usable_size(p));
  int64_t peak = g_peak.load(std::memory_order_relaxed);
  while (now > peak && !g_peak.compare_exchange_weak(peak, now)) {
  }
}

void note_free(void* p) {
  if (p) g_inUse.fetch_sub(int64_t(malloc_usable_size(p)));
}

std::mutex g_verbLock;
std::map<std::string, unsigned long>* g_verbs = nullptr;  // created on first use

}  // namespace

// Allocator replacements: every allocation of the process, the C++ run time's
// and the libraries' included, is counted on its way to the C library.
extern "C" {

void* malloc(size_t size) {
  void* p = __libc_malloc(size);
  note_alloc(p);
  return p;
}

void free(void* p) {
  note_free(p);
  __libc_free(p);
}

void* calloc(size_t n, size_t size) {
  void* p = __libc_calloc(n, size);
  note_alloc(p);
  return p;
}

void* realloc(void* old, size_t size) {
  size_t before = old ? malloc_usable_size(old) : 0;
  void* p = __libc_realloc(old, size);
  if (p) {
    g_inUse.fetch_sub(int64_t(before));
    note_alloc(p);
  } else if (old && size == 0) {
    g_inUse.fetch_sub(int64_t(before));  // realloc(p, 0) freed it
  }
  return p;
}

void* memalign(size_t alignment, size_t size) {
  void* p = __libc_memalign(alignment, size);
  note_alloc(p);
  return p;
}

void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

int posix_memalign(void** out, size_t alignment, size_t size) {
  if (alignment % sizeof(void*) != 0 || (alignment & (alignment - 1)) != 0) return 22;  // EINVAL
  void* p = memalign(alignment, size);
  if (!p) return 12;  // ENOMEM
  *out = p;
  return 0;
}

void* valloc(size_t size) { return memalign(4096, size); }

// Sees the shell commands of the compatibility layer (it starts /bin/sh -c
// with posix_spawn) and counts them by their first word.
int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const argv[], char* const envp[]) {
  using Spawn = int (*)(pid_t*, const char*, const posix_spawn_file_actions_t*,
                        const posix_spawnattr_t*, char* const[], char* const[]);
  static Spawn real = reinterpret_cast<Spawn>(dlvsym(RTLD_NEXT, "posix_spawn", "GLIBC_2.15"));
  if (!real) real = reinterpret_cast<Spawn>(dlsym(RTLD_NEXT, "posix_spawn"));
  if (argv[0] && argv[1] && std::strcmp(argv[1], "-c") == 0 && argv[2]) {
    const char* command = argv[2];
    std::string verb(command, std::strcspn(command, " \t"));
    std::lock_guard<std::mutex> lock(g_verbLock);
    if (!g_verbs) g_verbs = new std::map<std::string, unsigned long>();
    ++(*g_verbs)[verb];
  }
  return real(pid, path, actions, attributes, argv, envp);
}

}  // extern "C"

namespace bench {

uint64_t heap_in_use() {
  int64_t v = g_inUse.load();
  return v > 0 ? uint64_t(v) : 0;
}

uint64_t heap_peak() {
  int64_t v = g_peak.load();
  return v > 0 ? uint64_t(v) : 0;
}

void reset_heap_peak() { g_peak.store(g_inUse.load()); }

std::map<std::string, unsigned long> spawned_verbs() {
  std::lock_guard<std::mutex> lock(g_verbLock);
  return g_verbs ? *g_verbs : std::map<std::string, unsigned long>();
}

void reset_spawned() {
  std::lock_guard<std::mutex> lock(g_verbLock);
  if (g_verbs) g_verbs->clear();
}

uint64_t status_kib(const char* field) {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return 0;
  char line[256];
  size_t n = std::strlen(field);
  uint64_t value = 0;
  while (std::fgets(line, sizeof line, f)) {
    if (std::strncmp(line, field, n) == 0 && line[n] == ':') {
      value = std::strtoull(line + n + 1, nullptr, 10);
      break;
    }
  }
  std::fclose(f);
  return value;
}

bool reset_rss_peak() {
  FILE* f = std::fopen("/proc/self/clear_refs", "w");
  if (!f) return false;
  bool ok = std::fputs("5", f) >= 0;
  return std::fclose(f) == 0 && ok;
}

}  // namespace bench
