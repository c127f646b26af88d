// The package reader on a machine without the SIMD inflate library: this
// binary supplies a soname that does not exist, so the library never loads.
#include <gtest/gtest.h>

#include "fuzz/fuzz_bodies.h"
#include "package/simd_inflate_library.h"
#include "package_test_util.h"

const char* simd_inflate_soname() { return "libtpl-no-such-inflate-library.so.0"; }

using namespace pkgtest;

TEST(NoSimdLibraryTest, ZlibDecodesEverything) {
  EXPECT_EQ(simd_inflate_library(), nullptr);
  EXPECT_FALSE(inflate_engine_available(InflateEngine::kIsal));
  EXPECT_EQ(default_inflate_engine(), InflateEngine::kZlib);

  // Asking for the SIMD engine decodes with zlib, bytes and verdicts alike.
  std::string text = test_bytes(300000, 3);
  std::string stream = deflate_raw(text);
  for (const std::string& input :
       {stream, stream.substr(0, stream.size() / 2), std::string("\xff\xff\xff", 3)}) {
    CollectSink viaZlib, viaSimd;
    const auto* data = reinterpret_cast<const uint8_t*>(input.data());
    InflateOutcome a = inflate_stream(data, input.size(), viaZlib, InflateEngine::kZlib);
    InflateOutcome b = inflate_stream(data, input.size(), viaSimd, InflateEngine::kIsal);
    EXPECT_EQ(a.code, b.code);
    EXPECT_EQ(viaZlib.bytes, viaSimd.bytes);
  }
}
