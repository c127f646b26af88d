#include "starter/config_file_io.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "starter/config_file.h"
#include "starter_test_env.h"

using namespace startertest;
using testsupport::read_file;
using testsupport::snapshot;
using testsupport::write_file;

namespace {

class ConfigFileIoTest : public PrivateHomeTest {
 protected:
  // Reads `bytes` as a configuration file and returns what was found.
  Pairs parse(const std::string& bytes) {
    write_file(home("in.cfg"), bytes);
    ConfigFile config;
    read_config_file(w(home("in.cfg")), config);
    return pairs_of(config);
  }

  // Writes `config` to HOME/name and returns the bytes on disk.
  std::string written(const ConfigFile& config, const std::string& name = "out.cfg") {
    write_config_file(w(home(name)), config);
    return read_file(home(name));
  }
};

TEST_F(ConfigFileIoTest, LinesSplitIntoKeysAndValues) {
  const std::string longValue(5000, 'v');
  struct Case {
    const char* name;
    std::string bytes;
    Pairs expected;
  } cases[] = {
      {"first = splits", "a=b=c\n", {{"a", {"b=c"}}}},
      {"bare key", "bare\n", {{"bare", {""}}}},
      {"empty key", "=x\n", {{"", {"x"}}}},
      {"empty value", "k=\n", {{"k", {""}}}},
      {"lone =", "=\n", {}},
      {"blanks kept", " key\t= value \n", {{" key\t", {" value "}}}},
      {"CR LF kept", "a=1\r\nbare\r\n", {{"a", {"1\r"}}, {"bare\r", {""}}}},
      {"no final LF", "a=1\nb=2", {{"a", {"1"}}, {"b", {"2"}}}},
      {"no final LF, bare", "a=1\nb", {{"a", {"1"}}, {"b", {""}}}},
      {"empty lines", "\n\na=1\n\n\n", {{"a", {"1"}}}},
      {"no comments", "#c=1\n;d\n", {{"#c", {"1"}}, {";d", {""}}}},
      {"long line", "k=" + longValue + "\nz=1\n", {{"k", {longValue}}, {"z", {"1"}}}},
      {"long key", longValue + "=1", {{longValue, {"1"}}}},
      {"duplicates once, first place",
       "K=/a\nk=/A\nother=1\nK=/b\nK=/a\n",
       {{"K", {"/a", "/b"}}, {"other", {"1"}}}},
      {"empty file", "", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(parse(c.bytes), c.expected) << c.name;
}

TEST_F(ConfigFileIoTest, ReadingAddsToWhatIsThere) {
  ConfigFile config;
  config.addValue(u"ConfigurationTemplatesLocation", u"/a");
  read_config_file(w(home("missing.cfg")), config);
  EXPECT_EQ(pairs_of(config), (Pairs{{"ConfigurationTemplatesLocation", {"/a"}}}));

  write_file(home("in.cfg"),
             "configurationtemplateslocation=/b\nCONFIGURATIONTEMPLATESLOCATION=/A\n");
  read_config_file(w(home("in.cfg")), config);
  EXPECT_EQ(pairs_of(config), (Pairs{{"ConfigurationTemplatesLocation", {"/a", "/b"}}}));
}

TEST_F(ConfigFileIoTest, Utf16FilesWithByteOrderMarkAreRead) {
  std::u16string text = u"Путь=/opt/Шаблоны\r\nk=v";
  std::string bytes = "\xFF\xFE";
  for (char16_t u : text) bytes += {static_cast<char>(u & 0xFF), static_cast<char>(u >> 8)};
  EXPECT_EQ(parse(bytes), (Pairs{{"Путь", {"/opt/Шаблоны\r"}}, {"k", {"v"}}}));

  // Rewritten as narrow text without the mark.
  ConfigFile config;
  read_config_file(w(home("in.cfg")), config);
  EXPECT_FALSE(is_ansi_encoded(w(home("in.cfg"))));
  EXPECT_EQ(written(config, "in.cfg"), "Путь=/opt/Шаблоны\r\nk=v\n");
  EXPECT_TRUE(is_ansi_encoded(w(home("in.cfg"))));
}

TEST_F(ConfigFileIoTest, NarrowOrWideTest) {
  struct Case {
    const char* name;
    std::string bytes;
    bool narrow;
  } cases[] = {
      {"empty", "", false},
      {"one byte", "a", false},
      {"UTF-16 mark", "\xFF\xFEk\0", false},
      {"mark only", "\xFF\xFE", false},
      {"text", "k=v\n", true},
      {"UTF-8 mark", "\xEF\xBB\xBFk=v", true},
      {"reversed mark", "\xFE\xFF", true},
  };
  for (const Case& c : cases) {
    write_file(home("t.cfg"), c.bytes);
    EXPECT_EQ(is_ansi_encoded(w(home("t.cfg"))), c.narrow) << c.name;
  }
  EXPECT_FALSE(is_ansi_encoded(w(home("missing.cfg"))));
}

// Appends a filler line to `text` so that `piece`, appended after it, starts at byte `offset`.
std::string place_at(std::string text, size_t offset, const std::string& piece) {
  text += "Filler" + std::to_string(text.size()) + "=";
  text.append(offset - text.size() - 1, 'f');
  text += "\n" + piece;
  return text;
}

TEST_F(ConfigFileIoTest, CharactersAcrossBlockBoundariesAndStrayBytesSurvive) {
  // A two-byte character cut by the first block boundary, a three-byte one by
  // the second, a stray Latin-1 byte as the last byte of the third block and
  // a cut character at the very end of the file.
  std::string bytes = "DefaultVersion=8.2\nInstalledLocation=/opt/Орво/Плом 8\n";
  bytes = place_at(bytes, 1023 - 2, "A=Ж\n");             // Ж = D0 96 at 1023, 1024
  bytes = place_at(bytes, 2047 - 2, "B=\xE2\x82\xAC\n");  // € at 2047..2049
  bytes = place_at(bytes, 3071 - 2, "C=\xE9tude\n");      // stray E9 at 3071
  bytes += "Last=caf\xC3";
  ASSERT_EQ(bytes.substr(1023, 2), "\xD0\x96");
  ASSERT_EQ(bytes[3071], '\xE9');

  write_file(home("in.cfg"), bytes);
  ConfigFile config;
  read_config_file(w(home("in.cfg")), config);
  ASSERT_NE(config.findValues(u"A"), nullptr);
  EXPECT_EQ(*config.findValues(u"A"), std::vector<std::u16string>{u"Ж"});
  EXPECT_EQ(*config.findValues(u"B"), std::vector<std::u16string>{u"€"});
  EXPECT_EQ(*config.findValues(u"C"),
            std::vector<std::u16string>{std::u16string(1, char16_t(0xDCE9)) + u"tude"});
  EXPECT_EQ(*config.findValues(u"Last"),
            std::vector<std::u16string>{u"caf" + std::u16string(1, char16_t(0xDCC3))});
  EXPECT_EQ(*config.findValues(u"InstalledLocation"),
            std::vector<std::u16string>{u"/opt/Орво/Плом 8"});

  // Written back byte for byte (the last line gains its line feed).
  EXPECT_EQ(written(config), bytes + "\n");
}

TEST_F(ConfigFileIoTest, WritingProducesOneLinePerValue) {
  ConfigFile threeValues;
  for (const char16_t* v : {u"/c", u"/a", u"/b"}) threeValues.addValue(u"Key", v);
  ConfigFile emptied = threeValues;
  emptied.addValue(u"Other", u"x");
  emptied.setValues(u"key", {});
  ConfigFile crlf;
  crlf.addValue(u"a", u"1\r");
  crlf.addValue(u"bare\r", u"");

  EXPECT_EQ(written(ConfigFile()), "");
  EXPECT_EQ(written(threeValues), "Key=/c\nKey=/a\nKey=/b\n");
  EXPECT_EQ(written(emptied), "Other=x\n");
  EXPECT_EQ(written(crlf), "a=1\r\nbare\r=\n");
}

TEST_F(ConfigFileIoTest, ReplacingKeepsModeAndLinks) {
  ConfigFile config;
  config.addValue(u"k", u"new");
  write_file(home("real.cfg"), "k=old\n");
  ASSERT_EQ(chmod(home("real.cfg").c_str(), 0640), 0);
  ASSERT_EQ(symlink("real.cfg", home("link.cfg").c_str()), 0);

  write_config_file(w(home("link.cfg")), config);
  struct stat st;
  ASSERT_EQ(lstat(home("link.cfg").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  ASSERT_EQ(stat(home("real.cfg").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(read_file(home("real.cfg")), "k=new\n");
}

TEST_F(ConfigFileIoTest, FailedWriteLeavesTheOldFileAlone) {
  ConfigFile config;
  config.addValue(u"ConfigurationTemplatesLocation", std::u16string(300, u'n'));
  put("dir/plain", "not a directory");
  put("dir/zelbrun.cfg/inside", "a directory where the file should be");
  put("dir/zelbrun.cfg.keep", "k=old\n");

  struct Case {
    const char* name;
    std::string path;
    int code;
  } cases[] = {
      {"parent is a file", home("dir/plain/zelbrun.cfg"), 1},
      {"parent missing", home("dir/missing/zelbrun.cfg"), 1},
      {"directory in place of the file", home("dir/zelbrun.cfg"), 1},
  };
  for (const Case& c : cases) {
    testsupport::Snapshot before = snapshot(home("dir"));
    int thrown = 0;
    try {
      write_config_file(w(c.path), config);
    } catch (int code) {
      thrown = code;
    }
    EXPECT_EQ(thrown, c.code) << c.name;
    EXPECT_EQ(snapshot(home("dir")), before) << c.name;
  }

  // The disk refuses the bytes: a file-size limit below the new text's size.
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit saved;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  struct rlimit small = saved;
  small.rlim_cur = 100;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  testsupport::Snapshot before = snapshot(home("dir"));
  int thrown = 0;
  try {
    write_config_file(w(home("dir/zelbrun.cfg.keep")), config);
  } catch (int code) {
    thrown = code;
  }
  setrlimit(RLIMIT_FSIZE, &saved);
  signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(thrown, 2);
  EXPECT_EQ(snapshot(home("dir")), before);
  EXPECT_EQ(read_file(home("dir/zelbrun.cfg.keep")), "k=old\n");
}

}  // namespace
