// Loading a package: space check, working file, catalogue, clean-up.
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "compat/text.h"
#include "package/package_loader.h"
#include "package/catalogue.h"
#include "package/package_location.h"
#include "package_test_util.h"
#include "support/test_support.h"

using namespace testsupport;
using namespace pkgtest;

namespace {

// The free space the loader is told about, and whether the query works.
uint64_t g_freeSpace = 0;
bool g_freeSpaceFails = false;
unsigned fake_free_space(uint64_t* bytes) {
  if (g_freeSpaceFails) return 123;
  *bytes = g_freeSpace;
  return 0;
}

// A private TMPDIR for the working files and a folder for packages.
class LoaderTest : public ::testing::Test {
 protected:
  LoaderTest() : m_env("TMPDIR", m_tmp.path()) {}

  std::u16string package(const std::string& working, int level = 6) {
    write_file(m_dir / "plom8.tpk", deflate_raw(working, level));
    return widen_lib(m_dir / "plom8.tpk");
  }
  std::vector<std::string> tmpFiles() const { return list_dir(m_tmp.path()); }

  // Bytes of `size` at absolute `offset` of the open working file.
  static std::string at(PackageReader& reader, uint64_t offset, uint32_t size) {
    long high = long(offset >> 32);
    FileSystem::SetFilePointer(reader.handle, long(uint32_t(offset)), &high, FILE_BEGIN);
    std::string out(size, '\0');
    unsigned got = 0;
    FileSystem::ReadFile(reader.handle, &out[0], size, &got, nullptr);
    out.resize(got);
    return out;
  }

  TempDir m_tmp;
  TempDir m_dir;
  ScopedEnv m_env;
};

std::vector<TestFile> sample_files() {
  return {{u"readme.txt", 132000000000000001ull, "read me\n"},
          {u"conf/main.cfg", 132000000000000002ull, text_bytes(70000, 7)},
          {u"conf\\legacy.cfg", 5, noise_bytes(3000, 8)},
          {u"last.bin", 132000000000000003ull, noise_bytes(100, 9)}};
}

}  // namespace

TEST_F(LoaderTest, LoadsCatalogueAndKeepsWorkingFileOpenUntilDestroyed) {
  std::vector<TestFile> files = sample_files();
  std::string working = working_file(files, u"Product", u"Vendor", u"https://x/doc");
  std::u16string path = package(working);
  {
    PackageReader reader;
    reader.cursor = 99;
    ASSERT_EQ(load_package(reader, path), "");
    EXPECT_EQ(reader.cursor, 0u);
    ASSERT_EQ(reader.languages.size(), 1u);
    EXPECT_EQ(reader.languages[0].language, u"en");
    EXPECT_EQ(reader.languages[0].title1, u"Product");
    EXPECT_EQ(reader.languages[0].descriptionRef, u"https://x/doc");
    ASSERT_EQ(reader.files.size(), files.size());
    // Offset 0 is the first byte after the catalogue, and the file pointer waits there.
    uint64_t dataStart = working.size();
    for (const TestFile& f : files) dataStart -= f.contents.size();
    EXPECT_EQ(reader.files[0].offset, dataStart);
    long high = 0;
    EXPECT_EQ(FileSystem::SetFilePointer(reader.handle, 0, &high, FILE_CURRENT), dataStart);
    for (size_t i = 0; i < files.size(); ++i) {
      EXPECT_EQ(reader.files[i].name, files[i].name);
      EXPECT_EQ(FileTimeToU64(reader.files[i].time), files[i].time);
      EXPECT_EQ(reader.files[i].size, files[i].contents.size());
      EXPECT_EQ(at(reader, reader.files[i].offset, reader.files[i].size), files[i].contents);
    }
    // The working file lives in the temporary directory while the reader does.
    ASSERT_EQ(tmpFiles().size(), 1u);
    EXPECT_EQ(tmpFiles()[0].substr(0, 3), "kpt");
    EXPECT_EQ(widen_lib(m_tmp / tmpFiles()[0]), reader.workingPath);
  }
  EXPECT_TRUE(tmpFiles().empty());
}

TEST_F(LoaderTest, BothEnginesLoadTheSameCatalogue) {
  std::string working = working_file(sample_files());
  std::u16string path = package(working, 9);
  for (InflateEngine engine : {InflateEngine::kZlib, InflateEngine::kIsal}) {
    if (!inflate_engine_available(engine)) continue;
    SCOPED_TRACE(inflate_engine_name(engine));
    LoadOptions options;
    options.engine = engine;
    PackageReader reader;
    ASSERT_EQ(load_package(reader, path, options), "");
    ASSERT_EQ(reader.files.size(), 4u);
    EXPECT_EQ(at(reader, reader.files[1].offset, reader.files[1].size), text_bytes(70000, 7));
  }
}

TEST_F(LoaderTest, SpaceCheckBoundary) {
  std::u16string path = package(working_file(sample_files()));
  uint64_t size = 0;
  ASSERT_EQ(FileSystem::GetFileSize64(path, &size), 0u);
  LoadOptions options;
  options.freeSpace = &fake_free_space;
  struct Case {
    uint64_t freeBytes;
    bool queryFails;
    const char* expected;
  } cases[] = {
      {3 * size, false, ""},
      {3 * size - 1, false, "IDS_ERROR_NOSPACE"},
      {0, false, "IDS_ERROR_NOSPACE"},
      {0, true, ""},  // no answer: the check is skipped
      {UINT64_MAX, false, ""},
      // A 32-bit product would wrap here; 64 bits do not.
      {(uint64_t(1) << 32) + 3 * size - 1, false, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.freeBytes);
    g_freeSpace = c.freeBytes;
    g_freeSpaceFails = c.queryFails;
    {
      PackageReader reader;
      EXPECT_EQ(load_package(reader, path, options), c.expected);
      if (std::string(c.expected) == "IDS_ERROR_NOSPACE") {
        EXPECT_TRUE(tmpFiles().empty());
        EXPECT_TRUE(reader.workingPath.empty());
      }
    }
    EXPECT_TRUE(tmpFiles().empty());
  }
  EXPECT_TRUE(has_space_for_package(UINT64_MAX / 3, UINT64_MAX));
  EXPECT_FALSE(has_space_for_package(UINT64_MAX / 3 + 1, UINT64_MAX));
  EXPECT_FALSE(has_space_for_package(uint64_t(1) << 33, uint64_t(3) << 32));
}

TEST_F(LoaderTest, FailuresLeaveNothingBehind) {
  std::string sound = working_file(sample_files());
  std::string badName = working_file({{u"ok", 1, "a"}, {u"../escape", 1, "b"}});
  struct Case {
    const char* what;
    std::string packageBytes;
  } cases[] = {
      {"empty package", ""},
      {"not raw deflate", "this is not a deflate stream at all"},
      {"zlib-framed", deflate_raw(sound, 6, 0, true)},
      {"catalogue cut short", deflate_raw(sound.substr(0, 40))},
      {"data cut short", deflate_raw(sound.substr(0, sound.size() - 1))},
      {"hostile name", deflate_raw(badName)},
      {"huge string count", deflate_raw(Bytes().u32(0).u32(0xFFFFFFF0).str())},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    write_file(m_dir / "plom8.tpk", c.packageBytes);
    PackageReader reader;
    reader.files.push_back({});
    EXPECT_EQ(load_package(reader, widen_lib(m_dir / "plom8.tpk")), "IDS_ERROR_DAMAGEDSOURCE");
    EXPECT_TRUE(reader.files.empty());
    EXPECT_EQ(reader.handle, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(reader.workingPath.empty());
    EXPECT_TRUE(tmpFiles().empty());
  }
  // A missing package cannot be inflated either.
  PackageReader reader;
  EXPECT_EQ(load_package(reader, widen_lib(m_dir / "absent.tpk")), "IDS_ERROR_DAMAGEDSOURCE");
  EXPECT_TRUE(tmpFiles().empty());
}

// Cut a sound package at many lengths and flip bytes in a seeded loop, both
// in the working file and in the compressed stream: every result is a clean
// load or "damaged", and no working file is left after a failure.
TEST_F(LoaderTest, DamageSweep) {
  std::vector<TestFile> files = sample_files();
  std::string sound = working_file(files);
  std::string compressed = deflate_raw(sound);
  size_t contents = 0;
  for (const TestFile& f : files) contents += f.contents.size();
  const size_t catalogueEnd = sound.size() - contents;
  struct Damaged {
    std::string bytes;
    bool mustFail;
  };
  std::vector<Damaged> packages;
  // Every cut of the working file loses bytes the catalogue promised.
  for (size_t cut = 0; cut < sound.size(); cut += 1 + cut / 8)
    packages.push_back({deflate_raw(sound.substr(0, cut)), true});
  std::mt19937 rng(7);
  for (int i = 0; i < 150; ++i) {
    std::string w = sound;
    w[rng() % (catalogueEnd + 8)] ^= char(1 + rng() % 255);
    packages.push_back({deflate_raw(w), false});
  }
  for (size_t cut = 0; cut < compressed.size(); cut += 1 + compressed.size() / 40)
    packages.push_back({compressed.substr(0, cut), true});
  for (int i = 0; i < 120; ++i) {
    std::string p = compressed;
    p[rng() % p.size()] ^= char(1 << (rng() % 8));
    packages.push_back({p, false});
  }

  size_t loaded = 0;
  for (size_t i = 0; i < packages.size(); ++i) {
    write_file(m_dir / "plom8.tpk", packages[i].bytes);
    {
      PackageReader reader;
      std::string result = load_package(reader, widen_lib(m_dir / "plom8.tpk"));
      if (result.empty()) {
        ASSERT_FALSE(packages[i].mustFail) << "package " << i;
        ++loaded;
        uint64_t end = 0;
        ASSERT_EQ(FileSystem::GetFileSize64(reader.workingPath, &end), 0u);
        for (const config::FileEntry& f : reader.files) {
          ASSERT_LE(f.offset + f.size, end) << "package " << i;
          ASSERT_EQ(config::catalogue_entry_fault(f.name, 0, 0, 0), nullptr);
        }
      } else {
        ASSERT_EQ(result, "IDS_ERROR_DAMAGEDSOURCE") << "package " << i;
        ASSERT_TRUE(tmpFiles().empty()) << "package " << i;
      }
    }
    ASSERT_TRUE(tmpFiles().empty()) << "package " << i;
  }
  // Flips in texts, times or stored bytes still load; the sweep must see both outcomes.
  EXPECT_GT(loaded, 0u);
  EXPECT_LT(loaded, packages.size());
}

TEST_F(LoaderTest, LargeCatalogueAcrossReadBlocks) {
  std::vector<TestFile> files;
  for (int i = 0; i < 3000; ++i)
    files.push_back({u"dir/" + widen_lib(std::to_string(i)) + u"/a-rather-long-file-name.cfg",
                     uint64_t(i), std::string(size_t(i % 5), char('a' + i % 26))});
  files.push_back({std::u16string(40000, u'n'), 1, "long name"});
  std::string working = working_file(files);
  PackageReader reader;
  ASSERT_EQ(load_package(reader, package(working)), "");
  ASSERT_EQ(reader.files.size(), files.size());
  for (size_t i = 0; i < files.size(); i += 499) {
    EXPECT_EQ(reader.files[i].name, files[i].name);
    EXPECT_EQ(at(reader, reader.files[i].offset, reader.files[i].size), files[i].contents);
  }
  EXPECT_EQ(reader.files.back().name.size(), 40000u);
  EXPECT_EQ(at(reader, reader.files.back().offset, reader.files.back().size), "long name");
}

TEST(PackageLocationTest, CurrentDirectoryOrExecutableDirectory) {
  TempDir dir;
  char old[4096];
  ASSERT_NE(getcwd(old, sizeof old), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  char real[4096];
  ASSERT_NE(getcwd(real, sizeof real), nullptr);
  EXPECT_EQ(tpk_full_path(true), widen_lib(std::string(real) + "/plom8.tpk"));
  ASSERT_EQ(chdir(old), 0);

  char exe[4096] = {};
  ASSERT_GT(readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  std::string exeDir(exe);
  exeDir.resize(exeDir.rfind('/'));
  if (exeDir.size() + 1 < 260) {  // the link is read into 260 bytes
    EXPECT_EQ(tpk_full_path(false), widen_lib(exeDir + "/plom8.tpk"));
  }
}
