// The compressed stream: LZCompressor and the two inflate engines.
#include <gtest/gtest.h>
#include <zlib.h>

#include <unistd.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "compat/text.h"
#include "package/inflate_decoder.h"
#include "package/lz_compressor.h"
#include "package_test_util.h"
#include "support/test_support.h"

using namespace testsupport;
using namespace pkgtest;

namespace {

std::vector<InflateEngine> engines() {
  std::vector<InflateEngine> list{InflateEngine::kZlib};
  if (inflate_engine_available(InflateEngine::kIsal)) list.push_back(InflateEngine::kIsal);
  return list;
}

// Keeps the output and the size of every write.
class RecordingSink : public InflateSink {
 public:
  void write(const uint8_t* data, size_t size) override {
    bytes.append(reinterpret_cast<const char*>(data), size);
    writes.push_back(size);
  }
  std::string bytes;
  std::vector<size_t> writes;
};

struct Decoded {
  InflateOutcome outcome;
  std::string bytes;
  std::vector<size_t> writes;
};

Decoded decode(const std::string& stream, InflateEngine engine,
               size_t chunk = kInflateChunkSize) {
  RecordingSink sink;
  Decoded d;
  d.outcome = inflate_stream(reinterpret_cast<const uint8_t*>(stream.data()), stream.size(), sink,
                             engine, chunk);
  d.bytes = std::move(sink.bytes);
  d.writes = std::move(sink.writes);
  return d;
}

// Several blocks of each kind, with matches reaching back across blocks.
std::string mixed_stream(const std::string& data) {
  z_stream zs{};
  deflateInit2(&zs, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(deflateBound(&zs, data.size()) * 2 + 4096, '\0');
  zs.next_out = reinterpret_cast<Bytef*>(&out[0]);
  zs.avail_out = uInt(out.size());
  const int kLevels[] = {0, 1, 9, 6, 0, 3};
  const int kStrategies[] = {Z_DEFAULT_STRATEGY, Z_FIXED, Z_HUFFMAN_ONLY, Z_RLE,
                             Z_DEFAULT_STRATEGY, Z_FILTERED};
  size_t part = data.size() / 6;
  for (int i = 0; i < 6; ++i) {
    deflateParams(&zs, kLevels[i], kStrategies[i]);
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data() + i * part));
    zs.avail_in = uInt(i == 5 ? data.size() - 5 * part : part);
    deflate(&zs, i == 5 ? Z_FINISH : Z_BLOCK);
  }
  out.resize(zs.total_out);
  deflateEnd(&zs);
  return out;
}

// Many tiny blocks (a flush every 40 bytes), then ordinary ones.
std::string flushed_stream(const std::string& small, const std::string& rest) {
  z_stream zs{};
  deflateInit2(&zs, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out((small.size() + rest.size()) * 2 + 65536, '\0');
  zs.next_out = reinterpret_cast<Bytef*>(&out[0]);
  zs.avail_out = uInt(out.size());
  for (size_t i = 0; i < small.size(); i += 40) {
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(small.data() + i));
    zs.avail_in = uInt(std::min<size_t>(40, small.size() - i));
    deflate(&zs, Z_SYNC_FLUSH);
  }
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(rest.data()));
  zs.avail_in = uInt(rest.size());
  deflate(&zs, Z_FINISH);
  out.resize(zs.total_out);
  deflateEnd(&zs);
  return out;
}

}  // namespace

TEST(LZCompressorTest, UnpackContract) {
  TempDir dir;
  ScopedEnv tmp("TMPDIR", dir.path());
  std::string exact = text_bytes(2 * 32768, 1);
  std::string repeated = text_bytes(40000, 2) + text_bytes(40000, 2);
  struct Case {
    const char* what;
    std::string source;   // package bytes
    unsigned code;        // expected result
    std::string output;   // expected destination (when code is 0)
  } cases[] = {
      {"exact multiple of the buffer", deflate_raw(exact), 0, exact},
      {"matches across output chunks", deflate_raw(repeated, 9), 0, repeated},
      {"empty source", "", 0, ""},
      {"bytes after the end marker ignored", deflate_raw("abc") + "garbage", 0, "abc"},
      {"zlib header refused", deflate_raw(exact, 6, Z_DEFAULT_STRATEGY, true), 13, ""},
      {"block type 3", std::string("\x07\x00", 2), 13, ""},
      {"stored block lengths disagree", std::string("\x01\x05\x00\x00\x00hello", 10), 13, ""},
  };
  for (InflateEngine engine : engines()) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.what) + " / " + inflate_engine_name(engine));
      write_file(dir / "p.tpk", c.source);
      unlink((dir / "w").c_str());
      unsigned code = LZCompressor::unpack(widen_lib(dir / "p.tpk"), widen_lib(dir / "w"), engine);
      EXPECT_EQ(code, c.code);
      if (c.code == 0) {
        EXPECT_EQ(read_file(dir / "w"), c.output);
      }
    }
  }
  // The default engine is used by the two-argument form.
  write_file(dir / "p.tpk", deflate_raw(exact));
  EXPECT_EQ(LZCompressor::unpack(widen_lib(dir / "p.tpk"), widen_lib(dir / "w2")), 0u);
  EXPECT_EQ(read_file(dir / "w2"), exact);
}

TEST(LZCompressorTest, OpenFailuresAndPack) {
  TempDir dir;
  ScopedEnv tmp("TMPDIR", dir.path());
  write_file(dir / "p.tpk", deflate_raw("abc"));
  // A missing source: file-not-found, and no destination appears.
  EXPECT_EQ(LZCompressor::unpack(widen_lib(dir / "missing"), widen_lib(dir / "w")), 2u);
  EXPECT_FALSE(exists(dir / "w"));
  // A destination that cannot be created.
  EXPECT_EQ(LZCompressor::unpack(widen_lib(dir / "p.tpk"), widen_lib(dir / "no/such/w")), 2u);
  // pack is not provided: 1, and nothing is created.
  EXPECT_EQ(LZCompressor::pack(widen_lib(dir / "p.tpk"), widen_lib(dir / "packed")), 1u);
  EXPECT_FALSE(exists(dir / "packed"));
}

TEST(InflateTest, ChunkingAndEndOfStream) {
  std::string exact = text_bytes(3 * 32768, 3);
  std::string whole = deflate_raw(exact);
  std::string shorter = text_bytes(100000, 4);
  std::string cut = deflate_raw(shorter);
  cut.resize(cut.size() / 2);
  for (InflateEngine engine : engines()) {
    SCOPED_TRACE(inflate_engine_name(engine));
    // An exact multiple of the chunk size ends at the end marker, in full chunks.
    Decoded d = decode(whole, engine);
    EXPECT_EQ(d.outcome.code, 0u);
    EXPECT_TRUE(d.outcome.reachedEnd);
    EXPECT_EQ(d.bytes, exact);
    EXPECT_EQ(d.writes, std::vector<size_t>(3, 32768));
    // A stream cut short is accepted: a prefix of the contents, no end marker.
    Decoded c = decode(cut, engine);
    EXPECT_EQ(c.outcome.code, 0u);
    EXPECT_FALSE(c.outcome.reachedEnd);
    EXPECT_GT(c.bytes.size(), 0u);
    EXPECT_LT(c.bytes.size(), shorter.size());
    EXPECT_EQ(c.bytes, shorter.substr(0, c.bytes.size()));
    // Another chunk size changes only the writes.
    Decoded big = decode(whole, engine, 1 << 20);
    EXPECT_EQ(big.bytes, exact);
    EXPECT_EQ(big.writes, std::vector<size_t>(1, exact.size()));
  }
}

// Both engines must give the same verdict, and on success the same bytes
// and the same end-of-stream answer, for sound, cut and damaged streams.
TEST(InflateTest, EnginesAgree) {
  if (!inflate_engine_available(InflateEngine::kIsal)) GTEST_SKIP() << "one engine only";
  std::vector<std::string> inputs;
  std::string text = text_bytes(150000, 5);
  std::string noise = noise_bytes(20000, 6);
  std::vector<std::string> sound = {mixed_stream(text + noise + text),
                                    flushed_stream(text_bytes(1200000, 9), text + noise),
                                    deflate_raw(""),
                                    deflate_raw("a"), deflate_raw(noise, 0),
                                    deflate_raw(text, 1, Z_FIXED), deflate_raw(text, 9, Z_RLE)};
  for (const std::string& s : sound) {
    inputs.push_back(s);
    for (size_t cut = 0; cut < s.size(); cut += 1 + s.size() / 97) inputs.push_back(s.substr(0, cut));
  }
  std::mt19937 rng(20240601);
  for (int i = 0; i < 400; ++i) {
    std::string s = sound[rng() % sound.size()];
    if (s.empty()) continue;
    for (int flips = 1 + int(rng() % 3); flips > 0; --flips) s[rng() % s.size()] ^= char(1 << (rng() % 8));
    inputs.push_back(s);
  }
  for (int i = 0; i < 200; ++i) inputs.push_back(noise_bytes(1 + rng() % 200, rng()));
  // The committed fuzzing corpus and regression inputs as well.
  for (const char* sub : {"corpus/inflate", "regressions/inflate"}) {
    std::string dir = std::string(TPL_FUZZ_DIR) + "/" + sub;
    for (const std::string& name : list_dir(dir)) inputs.push_back(read_file(dir + "/" + name));
  }

  size_t succeeded = 0, failed = 0;
  for (size_t i = 0; i < inputs.size(); ++i) {
    Decoded a = decode(inputs[i], InflateEngine::kZlib);
    Decoded b = decode(inputs[i], InflateEngine::kIsal);
    ASSERT_EQ(a.outcome.code, b.outcome.code) << "input " << i;
    if (a.outcome.code != 0) {
      ++failed;
      continue;
    }
    ++succeeded;
    ASSERT_EQ(a.outcome.reachedEnd, b.outcome.reachedEnd) << "input " << i;
    ASSERT_EQ(a.bytes, b.bytes) << "input " << i;
  }
  // The set must exercise both outcomes, or it proves little.
  EXPECT_GT(succeeded, 100u);
  EXPECT_GT(failed, 100u);
}
