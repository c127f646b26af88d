// The check a file record may carry: refused at load when the record's own
// fields do not match it, and the contents checked while they are copied.
#include <gtest/gtest.h>

#include <filesystem>

#include "compat/text.h"
#include "fuzz/fuzz_bodies.h"
#include "package/catalogue.h"
#include "package/contents_check.h"
#include "package_test_util.h"
#include "support/test_support.h"

using namespace pkgtest;
using namespace testsupport;

namespace {

struct Catalogue {
  unsigned code = 0;
  std::vector<LanguageEntry> languages;
  std::vector<FileEntry> files;
  CatalogueInfo info;
};

Catalogue read(const std::string& bytes) {
  Catalogue c;
  MemorySource source(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  c.code = read_catalogue(source, bytes.size(), c.languages, c.files, c.info);
  return c;
}

// Whether the contents of `entry` in `working` match its check, fed in
// pieces of `piece` bytes.
bool contents_match(const std::string& working, const Catalogue& c, const FileEntry& entry,
                    size_t piece = 1000) {
  ContentsCheck check(entry);
  const auto* data = reinterpret_cast<const uint8_t*>(working.data()) + c.info.dataStart;
  for (uint64_t done = 0; done < entry.size; done += piece)
    check.update(data + entry.offset + done, std::min<uint64_t>(piece, entry.size - done));
  return check.matches();
}

}  // namespace

// Each field of a checked record damaged in turn: name, time, size and the
// stored values are refused at load; the offset and the contents pass the
// load and fail the contents check; a record without the marker reads as
// before and is not checked.
TEST(IntegrityTest, RecordAndContentsChecks) {
  const std::string contents = test_bytes(5000, 8);
  const std::string sound =
      working_file({{u"dir/a.txt", 0x01D2345678ABCDEFull, contents}, {u"b", 7, "bee"}}, true);
  // Positions inside the first record (after kind, three strings, file count).
  const size_t record = 4 + 3 * 4 + 2 * (7 + 6 + 7) + 4, name = record + 8, time = name + 18,
               offset = time + 8, size = offset + 4, marker = size + 4;
  struct Case {
    const char* what;
    size_t at;  // byte flipped (xor 1); SIZE_MAX: none
    bool refusedAtLoad;
    bool contentsMatch;  // when loaded
  } cases[] = {
      {"sound", SIZE_MAX, false, true},          {"name", name + 2, true, false},
      {"time", time + 7, true, false},           {"size", size, true, false},
      {"contents CRC", marker + 4, true, false}, {"record CRC", marker + 11, true, false},
      {"marker", marker + 1, false, true},  // no check any more: read as described
      {"offset", offset, false, false},          {"contents", sound.size() - 10, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::string bytes = sound;
    if (c.at != SIZE_MAX) bytes[c.at] ^= 0x01;
    Catalogue cat = read(bytes);
    if (c.refusedAtLoad) {
      EXPECT_EQ(cat.code, 13u);
      EXPECT_NE(cat.info.fault.find("does not match its check"), std::string::npos);
      continue;
    }
    ASSERT_EQ(cat.code, 0u) << cat.info.fault;
    ASSERT_EQ(cat.files.size(), 2u);
    EXPECT_EQ(cat.files[0].hasCheck, c.at != marker + 1);
    EXPECT_EQ(contents_match(bytes, cat, cat.files[0]), c.contentsMatch);
    EXPECT_EQ(contents_match(bytes, cat, cat.files[0], 1), c.contentsMatch);
    EXPECT_TRUE(contents_match(bytes, cat, cat.files[1]));
  }
  // Checked records whose contents do not fill the data area: records were
  // lost (here the file count went from 2 to 1). With no record left nothing
  // is checked, and the rest is read as a data area nothing points into.
  for (uint32_t count : {1u, 0u}) {
    std::string bytes = sound;
    bytes[record - 4] = char(count);
    EXPECT_EQ(read(bytes).code, count == 0 ? 0u : 13u) << count;
  }
}

// Every single-bit flip of a package built by tpk-build is refused at load,
// caught by a contents check, leaves no file record at all (nothing to
// install), or leaves every file exactly as built (its name, time, size and
// contents).
TEST(IntegrityTest, EveryBitFlipOfABuiltPackageIsCaughtOrHarmless) {
  TempDir src, out;
  write_file(src / "readme.txt", "read me\n");
  write_file(src / "sub/config.xml", test_bytes(700, 4));
  write_file(src / "sub/empty", "");
  std::string cmd = std::string("'") + TPK_BUILD_EXE + "' '" + src.path() + "' -o '" +
                    (out / "p.tpk") + "' -q --level 9 --title1 P --title2 V --docref d";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  const std::string package = read_file(out / "p.tpk");

  auto decode = [](const std::string& stream, std::string& working) {
    CollectSink sink;
    InflateOutcome o =
        inflate_stream(reinterpret_cast<const uint8_t*>(stream.data()), stream.size(), sink);
    working = sink.bytes;
    return o.code == 0;
  };
  std::string original;
  ASSERT_TRUE(decode(package, original));
  const Catalogue built = read(original);
  ASSERT_EQ(built.code, 0u);
  ASSERT_EQ(built.files.size(), 3u);
  auto contents = [](const std::string& working, const Catalogue& c, const FileEntry& f) {
    return working.substr(size_t(c.info.dataStart + f.offset), f.size);
  };

  size_t refused = 0, caught = 0;
  for (size_t bit = 0; bit < package.size() * 8; ++bit) {
    std::string damaged = package;
    damaged[bit / 8] ^= char(1 << (bit % 8));
    std::string working;
    Catalogue c;
    if (!decode(damaged, working) || (c = read(working)).code != 0) {
      ++refused;
      continue;
    }
    bool allMatch = true;
    for (const FileEntry& f : c.files) allMatch = allMatch && contents_match(working, c, f);
    if (!allMatch) {
      ++caught;
      continue;
    }
    // Passed both checks: every file must be exactly as built. A file count
    // damaged to 0 leaves nothing to check and nothing to install.
    if (c.files.empty()) continue;
    ASSERT_EQ(c.files.size(), built.files.size()) << "bit " << bit;
    for (size_t i = 0; i < c.files.size(); ++i) {
      const FileEntry &a = c.files[i], &b = built.files[i];
      ASSERT_TRUE(a.name == b.name && a.size == b.size &&
                  a.time.dwLowDateTime == b.time.dwLowDateTime &&
                  a.time.dwHighDateTime == b.time.dwHighDateTime &&
                  contents(working, c, a) == contents(original, built, b))
          << "bit " << bit << " altered " << narrow_lib(b.name) << " unnoticed";
    }
  }
  EXPECT_GT(refused, 0u);
  EXPECT_GT(caught, 0u);
}
