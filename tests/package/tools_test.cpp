// tpk-build and tpk-list against the loader: build -> list -> load.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "compat/text.h"
#include "package/package_loader.h"
#include "package_test_util.h"
#include "support/test_support.h"
#include "tools/tpk_writer.h"

using namespace testsupport;
using namespace pkgtest;

namespace {

struct Outcome {
  int status;
  std::string out;  // standard output and error together
};

Outcome run(const std::string& command) {
  Outcome r{-1, ""};
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return r;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
  int status = pclose(pipe);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

std::string q(const std::string& s) { return "'" + s + "'"; }

struct Expected {
  std::string contents;
  int64_t seconds;
  long nanoseconds;
};

uint64_t ticks(int64_t seconds, long nanoseconds) {
  return uint64_t(seconds + 11644473600) * 10000000 + uint64_t(nanoseconds / 100);
}

class ToolsTest : public ::testing::Test {
 protected:
  ToolsTest() : m_env("TMPDIR", m_tmp.path()) {
    add("readme.txt", "read me\n", 1614834367, 123456789);
    add("sub/deep/data.bin", noise_bytes(200000, 1), 1700000000, 999999999);
    add("sub/empty", "", 0, 0);
    add("\xC3\xBCml\xC3\xA4ut/\xE5\x90\x8D\xE5\x89\x8D.txt", "unicode", 1500000000, 100);
    add("z.txt", text_bytes(100000, 2), 1600000000, 50);
  }

  void add(const std::string& rel, const std::string& contents, int64_t sec, long nsec) {
    std::string path = m_src / rel;
    run("mkdir -p " + q(path.substr(0, path.rfind('/'))));
    write_file(path, contents);
    set_mtime(path, sec, nsec);
    m_expected[rel] = {contents, sec, nsec};
  }

  // Checks the loaded catalogue against the tree, entry by entry.
  void expectLoadedTree(const std::string& package) {
    PackageReader reader;
    ASSERT_EQ(load_package(reader, widen_lib(package)), "");
    ASSERT_EQ(reader.files.size(), m_expected.size());
    auto it = m_expected.begin();  // std::map: byte order, as the builder sorts
    for (const config::FileEntry& f : reader.files) {
      SCOPED_TRACE(it->first);
      EXPECT_EQ(f.name, tpk::utf8_to_utf16(it->first));
      EXPECT_EQ(f.size, it->second.contents.size());
      EXPECT_EQ(FileTimeToU64(f.time), ticks(it->second.seconds, it->second.nanoseconds));
      std::string bytes(f.size, '\0');
      long high = long(f.offset >> 32);
      FileSystem::SetFilePointer(reader.handle, long(uint32_t(f.offset)), &high, FILE_BEGIN);
      unsigned got = 0;
      FileSystem::ReadFile(reader.handle, &bytes[0], f.size, &got, nullptr);
      EXPECT_EQ(bytes, it->second.contents);
      ++it;
    }
  }

  TempDir m_tmp;
  TempDir m_src;
  TempDir m_out;
  ScopedEnv m_env;
  std::map<std::string, Expected> m_expected;
};

}  // namespace

TEST_F(ToolsTest, BuildListLoadRoundTrip) {
  std::string package = m_out / "plom8.tpk";
  Outcome build = run(q(TPK_BUILD_EXE) + " " + q(m_src.path()) + " -o " + q(package));
  ASSERT_EQ(build.status, 0) << build.out;
  expectLoadedTree(package);

  Outcome list = run(q(TPK_LIST_EXE) + " " + q(package));
  ASSERT_EQ(list.status, 0) << list.out;
  EXPECT_NE(list.out.find("header kind: 0\n"), std::string::npos) << list.out;
  EXPECT_NE(list.out.find("languages: 1\n  \"en\" \"\" \"\" \"\"\n"), std::string::npos);
  // One line per file: time, size, offset, name, in catalogue order.
  std::istringstream lines(list.out.substr(list.out.find("files: ")));
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line.substr(0, 9), "files: 5,");
  uint64_t expectedOffset = 0;
  for (const auto& [name, e] : m_expected) {
    ASSERT_TRUE(std::getline(lines, line));
    std::istringstream fields(line);
    std::string time, rel;
    uint64_t size, offset;
    fields >> time >> size >> offset >> rel;
    EXPECT_EQ(rel, name);
    EXPECT_EQ(size, e.contents.size());
    EXPECT_EQ(offset, expectedOffset);
    expectedOffset += size;
    char fraction[32];
    std::snprintf(fraction, sizeof fraction, ".%07ldZ", e.nanoseconds / 100);
    EXPECT_EQ(time.substr(19), fraction) << line;
  }
  EXPECT_NE(list.out.find("  2021-03-04T05:06:07.1234567Z "), std::string::npos) << list.out;
}

TEST_F(ToolsTest, BuildIsDeterministicAndLevelsRoundTrip) {
  std::string a = m_out / "a.tpk", b = m_out / "b.tpk";
  ASSERT_EQ(run(q(TPK_BUILD_EXE) + " " + q(m_src.path()) + " -o " + q(a)).status, 0);
  ASSERT_EQ(run(q(TPK_BUILD_EXE) + " " + q(m_src.path()) + " -o " + q(b)).status, 0);
  EXPECT_EQ(read_file(a), read_file(b));
  for (const char* level : {"0", "1", "9"}) {
    SCOPED_TRACE(level);
    std::string p = m_out / (std::string("l") + level + ".tpk");
    ASSERT_EQ(run(q(TPK_BUILD_EXE) + " --level " + level + " " + q(m_src.path()) + " -o " + q(p))
                  .status,
              0);
    expectLoadedTree(p);
  }
  // A package written inside the tree is not packed into the next build.
  std::string inside = m_src / "plom8.tpk";
  ASSERT_EQ(run(q(TPK_BUILD_EXE) + " " + q(m_src.path()) + " -o " + q(inside)).status, 0);
  ASSERT_EQ(run(q(TPK_BUILD_EXE) + " " + q(m_src.path()) + " -o " + q(inside)).status, 0);
  EXPECT_EQ(read_file(inside), read_file(a));
}

TEST_F(ToolsTest, LanguageTable) {
  std::string package = m_out / "plom8.tpk";
  Outcome build = run(q(TPK_BUILD_EXE) + " " + q(m_src.path()) + " -o " + q(package) +
                  " --lang 'en:Templates:Vendor Inc:https://example.com/doc'" +
                  " --lang 'de:Vorlagen:Hersteller:doc/de.pdf'");
  ASSERT_EQ(build.status, 0) << build.out;
  Outcome list = run(q(TPK_LIST_EXE) + " " + q(package));
  ASSERT_EQ(list.status, 0) << list.out;
  EXPECT_NE(list.out.find("header kind: 1\nlanguages: 2\n"), std::string::npos) << list.out;
  EXPECT_NE(list.out.find("\"de\" \"Vorlagen\" \"Hersteller\" \"doc/de.pdf\""), std::string::npos);

  PackageReader reader;
  ASSERT_EQ(load_package(reader, widen_lib(package)), "");
  ASSERT_EQ(reader.languages.size(), 2u);
  EXPECT_EQ(reader.languages[0].title2, u"Vendor Inc");
  EXPECT_EQ(reader.languages[0].descriptionRef, u"https://example.com/doc");
  EXPECT_EQ(reader.languages[1].language, u"de");
  EXPECT_EQ(reader.files.size(), m_expected.size());
}

TEST_F(ToolsTest, DamageAndUsageErrors) {
  std::string package = m_out / "plom8.tpk";
  ASSERT_EQ(run(q(TPK_BUILD_EXE) + " " + q(m_src.path()) + " -o " + q(package)).status, 0);
  std::string whole = read_file(package);
  struct Case {
    const char* what;
    std::string bytes;
    const char* message;
  } cases[] = {
      {"cut in half", whole.substr(0, whole.size() / 2), "damaged package: a file's contents"},
      {"not deflate", "plain text, not a package", "damaged package"},
      {"empty", "", "damaged package: the file ends inside the header kind"},
      {"hostile name", deflate_raw(working_file({{u"../x", 0, "a"}})),
       "damaged package: a file name has a '..' component"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    write_file(m_out / "bad.tpk", c.bytes);
    Outcome list = run(q(TPK_LIST_EXE) + " " + q(m_out / "bad.tpk"));
    EXPECT_EQ(list.status, 1);
    EXPECT_NE(list.out.find(c.message), std::string::npos) << list.out;
  }
  EXPECT_EQ(run(q(TPK_LIST_EXE) + " " + q(m_out / "absent.tpk")).status, 2);
  EXPECT_EQ(run(q(TPK_BUILD_EXE) + " " + q(m_src / "absent") + " -o " + q(package)).status, 1);
  EXPECT_EQ(run(q(TPK_BUILD_EXE) + " " + q(m_src.path())).status, 2);
  EXPECT_EQ(run(q(TPK_BUILD_EXE) + " " + q(m_src.path()) + " -o x --level 12").status, 2);
  EXPECT_EQ(run(q(TPK_BUILD_EXE) + " --help").status, 0);
  EXPECT_EQ(run(q(TPK_LIST_EXE) + " --help").status, 0);
  // The failed builds left the good package alone and no staging files.
  EXPECT_EQ(read_file(package), whole);
  EXPECT_EQ(list_dir(m_out.path()), (std::vector<std::string>{"bad.tpk", "plom8.tpk"}));
}

TEST(TpkTextTest, Utf8AndUtf16) {
  struct Case {
    std::string utf8;
    std::u16string utf16;
  } cases[] = {
      {"plain/a.txt", u"plain/a.txt"},
      {"\xC3\xA9", u"\u00E9"},
      {"\xE2\x82\xAC", u"\u20AC"},
      {"\xF0\x9F\x98\x80", u"\U0001F600"},              // surrogate pair
      {"\xFF", std::u16string(1, char16_t(0xDCFF))},   // invalid byte kept
      {"\xC0\xAF", std::u16string{char16_t(0xDCC0), char16_t(0xDCAF)}},  // overlong
      {"\xED\xA0\x80", std::u16string{char16_t(0xDCED), char16_t(0xDCA0), char16_t(0xDC80)}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(tpk::utf8_to_utf16(c.utf8), c.utf16) << c.utf8;
    EXPECT_EQ(tpk::utf16_to_utf8(c.utf16), c.utf8) << c.utf8;
  }
  EXPECT_EQ(tpk::format_filetime(ticks(0, 0)), "1970-01-01T00:00:00.0000000Z");
  EXPECT_EQ(tpk::format_filetime(0), "1601-01-01T00:00:00.0000000Z");
  EXPECT_EQ(tpk::format_filetime(ticks(951782400, 123456700)), "2000-02-29T00:00:00.1234567Z");
}
