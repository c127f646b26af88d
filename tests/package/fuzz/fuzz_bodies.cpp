#include "fuzz_bodies.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "package/catalogue.h"
#include "package/inflate_decoder.h"

namespace {

void check(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
    std::abort();
  }
}

// Hands out at most `step` bytes per read, to exercise the reader's refills.
class ChoppySource : public config::ByteSource {
 public:
  ChoppySource(const uint8_t* data, size_t size, size_t step)
      : m_inner(data, size), m_step(step) {}
  unsigned read(uint8_t* buffer, size_t count, size_t* got) override {
    size_t total = 0;
    while (total < count) {
      size_t n = 0;
      m_inner.read(buffer + total, std::min(m_step, count - total), &n);
      if (n == 0) break;
      total += n;
    }
    *got = total;
    return 0;
  }

 private:
  config::MemorySource m_inner;
  size_t m_step;
};

struct Parsed {
  unsigned code = 0;
  std::vector<config::LanguageEntry> languages;
  std::vector<config::FileEntry> files;
  config::CatalogueInfo info;
};

Parsed parse(config::ByteSource& source, size_t size) {
  Parsed p;
  p.code = config::read_catalogue(source, size, p.languages, p.files, p.info);
  return p;
}

bool same_entries(const Parsed& a, const Parsed& b) {
  if (a.languages.size() != b.languages.size() || a.files.size() != b.files.size()) return false;
  for (size_t i = 0; i < a.languages.size(); ++i) {
    const auto &x = a.languages[i], &y = b.languages[i];
    if (x.language != y.language || x.title1 != y.title1 || x.title2 != y.title2 ||
        x.descriptionRef != y.descriptionRef)
      return false;
  }
  for (size_t i = 0; i < a.files.size(); ++i) {
    const auto &x = a.files[i], &y = b.files[i];
    if (x.name != y.name || x.offset != y.offset || x.size != y.size ||
        x.time.dwLowDateTime != y.time.dwLowDateTime ||
        x.time.dwHighDateTime != y.time.dwHighDateTime)
      return false;
  }
  return true;
}

class CollectSink : public InflateSink {
 public:
  explicit CollectSink(size_t chunk) : m_chunk(chunk) {}
  void write(const uint8_t* data, size_t size) override {
    check(size != 0 && size <= m_chunk, "a write larger than the chunk size");
    bytes.insert(bytes.end(), data, data + size);
  }
  std::vector<uint8_t> bytes;

 private:
  size_t m_chunk;
};

}  // namespace

void fuzz_catalogue_input(const uint8_t* data, size_t size) {
  config::MemorySource whole(data, size);
  Parsed a = parse(whole, size);
  ChoppySource choppy(data, size, 7);
  Parsed b = parse(choppy, size);
  check(a.code == b.code, "piecewise reading changed the verdict");
  check(a.code == 0 || a.code == 13, "an unexpected error code");
  check(a.code == 0 || !a.info.fault.empty(), "a refusal without a reason");
  if (a.code != 0) return;
  check(same_entries(a, b), "piecewise reading changed the entries");
  check(a.info.dataStart <= size, "the data area starts past the end");
  uint64_t dataSize = size - a.info.dataStart;
  for (const config::FileEntry& f : a.files) {
    check(f.offset + f.size <= dataSize, "an accepted entry runs past the data area");
    check(config::catalogue_entry_fault(f.name, f.offset, f.size, dataSize) == nullptr,
          "an accepted entry fails the gate");
  }
}

void fuzz_inflate_input(const uint8_t* data, size_t size) {
  CollectSink reference(kInflateChunkSize);
  InflateOutcome ref = inflate_stream(data, size, reference, InflateEngine::kZlib);
  check(ref.code == 0 || ref.code == 13, "an unexpected zlib result");
  check(ref.written == reference.bytes.size(), "zlib miscounted its output");

  CollectSink small(1000);
  InflateOutcome s = inflate_stream(data, size, small, InflateEngine::kZlib, 1000);
  check(s.code == ref.code && s.reachedEnd == ref.reachedEnd, "chunk size changed the verdict");
  check(small.bytes == reference.bytes, "chunk size changed the output");

  if (!inflate_engine_available(InflateEngine::kIsal)) return;
  for (size_t chunk : {kInflateChunkSize, size_t(1000)}) {
    CollectSink fast(chunk);
    InflateOutcome f = inflate_stream(data, size, fast, InflateEngine::kIsal, chunk);
    check(f.code == ref.code, "engines disagree on success");
    check(f.written == fast.bytes.size(), "isa-l miscounted its output");
    if (ref.code != 0) continue;
    check(f.reachedEnd == ref.reachedEnd, "engines disagree on reaching the end marker");
    check(fast.bytes == reference.bytes, "engines disagree on the decoded bytes");
  }
}
