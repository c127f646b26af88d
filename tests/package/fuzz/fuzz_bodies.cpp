#include "fuzz_bodies.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "package/catalogue.h"

const char* catalogue_invariant_broken(const uint8_t* data, size_t size) {
  MemorySource source(data, size);
  std::vector<LanguageEntry> languages;
  std::vector<FileEntry> files;
  CatalogueInfo info;
  unsigned code = read_catalogue(source, size, languages, files, info);
  if (code != 0 && code != 13) return "an unexpected error code";
  if (code != 0) return info.fault.empty() ? "a refusal without a reason" : nullptr;
  if (info.dataStart > size) return "the data area starts past the end";
  for (const FileEntry& f : files) {
    if (f.offset + f.size > size - info.dataStart) return "an entry runs past the data area";
    if (catalogue_entry_fault(f.name, f.offset, f.size, size - info.dataStart))
      return "an accepted entry fails the gate";
  }
  return nullptr;
}

const char* inflate_invariant_broken(const uint8_t* data, size_t size, unsigned* verdict) {
  CollectSink reference;
  InflateOutcome ref = inflate_stream(data, size, reference, InflateEngine::kZlib);
  *verdict = ref.code;
  if (ref.code != 0 && ref.code != 13) return "an unexpected zlib result";
  for (InflateEngine engine : {InflateEngine::kZlib, InflateEngine::kIsal}) {
    for (size_t chunk : {kInflateChunkSize, size_t(1000)}) {
      if (!inflate_engine_available(engine)) continue;
      CollectSink other;
      InflateOutcome o = inflate_stream(data, size, other, engine, chunk);
      if (o.written != other.bytes.size()) return "an engine miscounted its output";
      if (o.code != ref.code) return "engines or chunk sizes disagree on success";
      if (ref.code == 0 && o.reachedEnd != ref.reachedEnd) return "disagreement on the end marker";
      // The bytes given out before a refusal count as much as a sound
      // stream's: the working file keeps them until it is deleted.
      if (other.bytes != reference.bytes) return "disagreement on the bytes";
    }
  }
  return nullptr;
}

void abort_if(const char* broken) {
  if (!broken) return;
  std::fprintf(stderr, "fuzz invariant broken: %s\n", broken);
  std::abort();
}
