// Loading a package: space check, working file, catalogue, clean-up.
#include <gtest/gtest.h>

#include <memory>

#include "compat/text.h"
#include "package/catalogue.h"
#include "package/package_loader.h"
#include "package_test_util.h"
#include "support/faulty_file_ops.h"
#include "support/test_support.h"

using namespace testsupport;
using namespace pkgtest;

namespace {

uint64_t g_freeSpace = 0;  // what the loader is told; ~0 makes the query fail

struct LoaderTest : ::testing::Test {
  std::u16string package(const std::string& bytes) {
    write_file(m_dir / "plom8.tpk", bytes);
    return widen_lib(m_dir / "plom8.tpk");
  }
  bool tmpEmpty() { return snapshot(m_tmp.path()).empty(); }
  TempDir m_tmp, m_dir;
  ScopedEnv m_env{"TMPDIR", m_tmp.path()};
};

const std::vector<TestFile> kFiles = {{u"readme.txt", 132000000000000001ull, "read me\n"},
                                      {u"conf/main.cfg", 5, test_bytes(70000, 7)},
                                      {u"conf\\legacy.cfg", 1ull << 40, test_bytes(3000, 8, true)}};

}  // namespace

// The space check at its boundary, then a load. A name longer than the
// catalogue reader's 64 KiB block makes the catalogue span several reads.
// How a load ended: empty for success, "no space" when the space check
// refused it, "damaged" for every other failure.
std::string load_outcome(const Status& status) {
  if (status.ok()) return std::string();
  return status.operation == Operation::kCheckSpace ? "no space" : "damaged";
}

TEST_F(LoaderTest, SpaceCheckThenLoad) {
  std::vector<TestFile> files = kFiles;
  files.push_back({std::u16string(40000, u'n'), 1, "long name"});
  std::string working = working_file(files);
  const std::string bytes = deflate_raw(working);
  const std::u16string path = package(bytes);
  LoadOptions options;
  options.freeSpace = [](uint64_t* out) {
    return *out = g_freeSpace, g_freeSpace == ~uint64_t(0) ? 123u : 0u;
  };
  // One byte short; no answer (the check is skipped); a 32-bit wrap; exactly enough.
  const uint64_t kNeed = 3 * bytes.size();
  for (uint64_t freeBytes : {kNeed - 1, ~uint64_t(0), (uint64_t(1) << 32) + kNeed - 1, kNeed}) {
    SCOPED_TRACE(freeBytes);
    EXPECT_TRUE(tmpEmpty());
    g_freeSpace = freeBytes;
    PackageReader reader;
    std::string result = load_outcome(load_package(reader, path, options));
    EXPECT_EQ(result, freeBytes == kNeed - 1 ? "no space" : "");
    EXPECT_EQ(reader.handle == INVALID_HANDLE_VALUE, !result.empty());
    if (freeBytes != kNeed) continue;
    ASSERT_EQ(reader.languages.size(), 1u);
    EXPECT_EQ(reader.languages[0].language, u"en");
    // Offset 0 is the first byte after the catalogue, and the file pointer waits there.
    uint64_t dataStart = working.find("read me\n");  // the first file's contents
    long high = 0;
    EXPECT_EQ(FileSystem::SetFilePointer(reader.handle, 0, &high, FILE_CURRENT), dataStart);
    ASSERT_EQ(reader.files.size(), files.size());
    const std::string written = read_file(working_file_path(reader));
    for (size_t i = 0; i < files.size(); ++i) {
      const FileEntry& f = reader.files[i];
      EXPECT_EQ(f.name, files[i].name);
      EXPECT_EQ(written.substr(f.offset, f.size), files[i].contents);
    }
    // The working file has no name: nothing of it shows in TMPDIR, even while it is open.
    EXPECT_TRUE(tmpEmpty());
  }
  EXPECT_TRUE(tmpEmpty());
  EXPECT_FALSE(has_space_for_package(UINT64_MAX / 3 + 1, UINT64_MAX));
}

// On a file system without nameless files the working file is made with a
// name that goes at once: TMPDIR stays empty, and it still holds the package.
TEST_F(LoaderTest, WithoutNamelessFilesTheWorkingFileLosesItsNameAtOnce) {
  const std::string working = working_file(kFiles);
  const std::u16string path = package(deflate_raw(working));
  const std::string tmp = m_tmp.path() + "/";
  FaultyFileOps ops;
  size_t opened = 0;
  ops.before = [&](unsigned, const char* name, const std::string& p) {
    if (std::string(name) != "open" || p.rfind(tmp, 0) != 0) return 0;
    ++opened;
    return p == tmp ? EOPNOTSUPP : 0;
  };
  ScopedFileOps use(&ops);
  PackageReader reader;
  ASSERT_TRUE(load_package(reader, path).ok());
  EXPECT_EQ(opened, 2u);  // the nameless try, then the named file
  EXPECT_TRUE(tmpEmpty());
  EXPECT_EQ(read_file(working_file_path(reader)), working);
}

// Fixed bad packages, cuts at many lengths and seeded byte flips, in the
// working file and in the compressed stream: every result is a clean load or
// "damaged", a failure clears the reader and leaves no working file.
TEST_F(LoaderTest, DamageSweep) {
  std::string sound = working_file(kFiles), compressed = deflate_raw(sound);
  const size_t dataStart = sound.find("read me\n");
  // Bytes, and whether they must fail; the zlib-framed one fails while inflating.
  std::vector<std::pair<std::string, bool>> packages = {{deflate_raw(sound, 6, true), true}};
  for (size_t cut = 0; cut < sound.size(); cut += 1 + cut / 8)
    packages.push_back({deflate_raw(sound.substr(0, cut)), true});
  for (size_t cut = 0; cut < compressed.size(); cut += 1 + compressed.size() / 40)
    packages.push_back({compressed.substr(0, cut), true});
  std::mt19937 rng(7);
  for (int i = 0; i < 150; ++i) {
    std::string w = sound, p = compressed;
    w[rng() % (dataStart + 8)] ^= char(1 + rng() % 255);
    p[rng() % p.size()] ^= char(1 << (rng() % 8));
    packages.push_back({deflate_raw(w), false});
    packages.push_back({p, false});
  }
  size_t loaded = 0;
  for (size_t i = 0; i < packages.size(); ++i) {
    SCOPED_TRACE(i);
    auto reader = std::make_unique<PackageReader>();
    reader->files.push_back({});
    std::string result = load_outcome(load_package(*reader, package(packages[i].first)));
    if (result.empty()) {
      ASSERT_FALSE(packages[i].second);
      ++loaded;
      const uint64_t end = read_file(working_file_path(*reader)).size();
      for (const FileEntry& f : reader->files) {
        ASSERT_LE(f.offset + f.size, end);
        ASSERT_EQ(catalogue_entry_fault(f.name, 0, 0, 0), nullptr);
      }
      reader.reset();
    } else {
      ASSERT_EQ(result, "damaged");
      ASSERT_TRUE(reader->files.empty() && reader->handle == INVALID_HANDLE_VALUE &&
                  reader->workingDir.empty());
    }
    ASSERT_TRUE(tmpEmpty());  // a failure leaves nothing even while the reader lives
  }
  // Flips in texts, times or stored bytes still load; the sweep must see both outcomes.
  EXPECT_GT(loaded, 0u);
  EXPECT_LT(loaded, packages.size());
}
