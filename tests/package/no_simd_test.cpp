// The package reader on a machine without the SIMD inflate library: this
// binary supplies a soname that does not exist, so the library never loads.
#include <gtest/gtest.h>

#include "compat/text.h"
#include "fuzz/fuzz_bodies.h"
#include "package/package_loader.h"
#include "package/simd_inflate_library.h"
#include "package_test_util.h"
#include "support/test_support.h"

const char* simd_inflate_soname() { return "libtpl-no-such-inflate-library.so.0"; }

using namespace pkgtest;
using namespace testsupport;

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

  // A package with checked records loads with the default options.
  TempDir tmp;
  ScopedEnv env("TMPDIR", tmp.path());
  write_file(tmp / "p.tpk", deflate_raw(working_file({{u"a.txt", 5, text}}, true)));
  PackageReader reader;
  ASSERT_TRUE(load_package(reader, widen_lib(tmp / "p.tpk")).ok());
  ASSERT_EQ(reader.files.size(), 1u);
  EXPECT_TRUE(reader.files[0].hasCheck);
  EXPECT_EQ(reader.files[0].size, text.size());
}
