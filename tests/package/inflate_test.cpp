// The compressed stream: LZCompressor and the two inflate engines.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "compat/text.h"
#include "fuzz/fuzz_bodies.h"
#include "package/lz_compressor.h"
#include "package/simd_inflate_library.h"
#include "package_test_util.h"
#include "support/test_support.h"

using namespace testsupport;
using namespace pkgtest;

// `data` deflated in parts of `part` bytes, each with its own level and strategy
// and ended by Z_BLOCK, so blocks of every kind follow each other and matches
// reach back across them; the first `tiny` bytes go in sync-flushed 40-byte blocks.
static std::string blocky_stream(const std::string& data, size_t part, size_t tiny) {
  const int kModes[][2] = {
      {6, Z_DEFAULT_STRATEGY}, {0, Z_DEFAULT_STRATEGY}, {1, Z_FIXED}, {3, Z_FILTERED}, {6, Z_RLE},
      {9, Z_HUFFMAN_ONLY}};
  z_stream zs{};
  deflateInit2(&zs, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
  std::string out(data.size() * 2 + 65536, '\0');
  zs.next_out = reinterpret_cast<Bytef*>(&out[0]);
  zs.avail_out = uInt(out.size());
  for (size_t at = 0, i = 0, n; at < data.size(); at += n) {
    n = std::min(at < tiny ? size_t(40) : part, data.size() - at);
    if (at >= tiny) deflateParams(&zs, kModes[i % 6][0], kModes[i % 6][1]), ++i;
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data() + at));
    zs.avail_in = uInt(n);
    deflate(&zs, at + n == data.size() ? Z_FINISH : at + n <= tiny ? Z_SYNC_FLUSH : Z_BLOCK);
  }
  out.resize(zs.total_out);
  deflateEnd(&zs);
  return out;
}

TEST(InflateTest, UnpackContract) {
  TempDir dir;
  std::string exact = test_bytes(3 * 32768, 1);
  struct Case {
    std::string source;
    unsigned code;
    bool reachedEnd;
    std::string output;  // when code is 0
  } cases[] = {
      {deflate_raw(exact), 0, true, exact},  // an exact multiple of the buffer
      {"", 0, false, ""},
      {deflate_raw(exact, 0).substr(0, 1000), 0, false, exact.substr(0, 995)},  // cut short
      {deflate_raw("abc") + "garbage", 0, true, "abc"},  // bytes after the end marker ignored
      {deflate_raw(exact, 6, true), 13, false, ""},      // a zlib header is refused
  };
  for (InflateEngine engine : {InflateEngine::kZlib, InflateEngine::kIsal}) {
    if (!inflate_engine_available(engine)) continue;
    for (const Case& c : cases) {
      SCOPED_TRACE(std::to_string(&c - cases) + " / " + inflate_engine_name(engine));
      const auto* data = reinterpret_cast<const uint8_t*>(c.source.data());
      CollectSink sink;
      EXPECT_EQ(inflate_stream(data, c.source.size(), sink, engine).reachedEnd, c.reachedEnd);
      write_file(dir / "p.tpk", c.source);
      unlink((dir / "w").c_str());
      EXPECT_EQ(LZCompressor::unpack(widen_lib(dir / "p.tpk"), widen_lib(dir / "w"), engine),
                c.code);
      if (c.code == 0) {
        EXPECT_EQ(read_file(dir / "w"), c.output);
        EXPECT_EQ(sink.bytes, c.output);
      }
    }
  }
  // A missing source creates nothing.
  EXPECT_EQ(LZCompressor::unpack(widen_lib(dir / "missing"), widen_lib(dir / "w2")), 2u);
  EXPECT_FALSE(exists(dir / "w2"));
}

// Same verdict from both engines and both chunk sizes, and on success the same
// bytes and end-of-stream answer: streams mixing block kinds, cuts of them,
// seeded bit flips and noise (package_fuzz_replay holds the committed corpus
// and regressions to the same invariant).
TEST(InflateTest, EnginesAgree) {
  std::string text = test_bytes(150000, 5), noise = test_bytes(20000, 6, true);
  const std::string sound[] = {
      blocky_stream(text + noise + text, 53400, 0),
      blocky_stream(test_bytes(1200000, 9) + text + noise, 90000, 1200000)};
  std::vector<std::string> inputs;
  for (const std::string& s : sound)
    for (size_t cut = 0; cut <= s.size(); cut += 1 + s.size() / 97)
      inputs.push_back(s.substr(0, cut));
  std::mt19937 rng(20240601);
  for (int i = 0; i < 400; ++i) {
    std::string s = sound[i % 2];
    for (int flips = 1 + i % 3; flips > 0; --flips) s[rng() % s.size()] ^= char(1 << (rng() % 8));
    inputs.push_back(s);
    if (i % 2) inputs.push_back(test_bytes(1 + rng() % 200, rng(), true));
  }
  size_t succeeded = 0;
  for (size_t i = 0; i < inputs.size(); ++i) {
    unsigned verdict = 0;
    const auto* data = reinterpret_cast<const uint8_t*>(inputs[i].data());
    const char* broken = inflate_invariant_broken(data, inputs[i].size(), &verdict);
    ASSERT_FALSE(broken) << broken << " (input " << i << ")";
    succeeded += verdict == 0;
  }
  // The set must exercise both outcomes, or it proves little.
  EXPECT_GT(succeeded, 100u);
  EXPECT_GT(inputs.size() - succeeded, 100u);
}

// Where the machine has the SIMD inflate library it is loaded and is the
// default engine (the tests above then hold it against zlib); the binary
// itself does not need it (see no_simd_test.cpp for a machine without it).
TEST(InflateTest, SimdLibraryLoadedWherePresent) {
  void* probe = dlopen(simd_inflate_soname(), RTLD_NOW | RTLD_LOCAL);
  if (!probe) GTEST_SKIP() << simd_inflate_soname() << " is not installed here";
  dlclose(probe);
#ifdef TPL_HAVE_ISAL
  EXPECT_NE(simd_inflate_library(), nullptr);
  EXPECT_EQ(default_inflate_engine(), InflateEngine::kIsal);
#else
  EXPECT_EQ(default_inflate_engine(), InflateEngine::kZlib);  // built without its header
#endif
}
