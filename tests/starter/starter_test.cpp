// The starter configuration: the ConfigFile model, reading and writing files,
// their locations, the template directory list and the start-up state.
#include "starter/starter.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "../compat/turkish_locale.h"
#include "compat/text.h"
#include "starter/config_file.h"
#include "starter/config_file_io.h"
#include "starter/starter_state.h"
#include "support/test_support.h"

using testsupport::exists;
using testsupport::read_file;
using testsupport::snapshot;
using testsupport::write_file;

namespace {

const std::string kLocal = ".Orvo/zelbrun/zelbrun.cfg";
const std::string kLocalBase = ".Orvo/zelbrunt/zelbrun.cfg";
const std::string kShared = ".plom8//.Orvo/zelbrun/zelbrun.cfg";
const std::string kKey = "ConfigurationTemplatesLocation=";

std::u16string w(const std::string& s) { return widen_lib(s); }

// Every test gets HOME and TMPDIR inside its own temporary folder.
class StarterTest : public ::testing::Test {
 protected:
  // HOME + "/" + relative.
  std::string home(const std::string& relative) const { return m_home + "/" + relative; }
  // Writes `bytes` to HOME/relative, creating the folders on the way.
  void put(const std::string& relative, const std::string& bytes) const {
    write_file(home(relative), bytes);
  }
  // The files below HOME (the lock beside a starter file changes its folder's time).
  testsupport::Snapshot files() const {
    testsupport::Snapshot s = snapshot(m_home);
    for (auto it = s.begin(); it != s.end();)
      it = it->second.compare(0, 2, "40") == 0 ? s.erase(it) : std::next(it);
    return s;
  }

  testsupport::TempDir m_root;
  std::string m_home = m_root / "home";
  std::string m_tmp = m_root / "tmp";
  int m_made = std::system(("mkdir '" + m_home + "' '" + m_tmp + "'").c_str());
  testsupport::ScopedEnv m_homeEnv{"HOME", m_home};
  testsupport::ScopedEnv m_tmpEnv{"TMPDIR", m_tmp};
  testsupport::ScopedEnv m_locale{"LC_ALL", "C.UTF-8"};
  void SetUp() override { ASSERT_EQ(m_made, 0); }
};

// The entries of `config` in order, as UTF-8 "key[value|value]".
std::string dump(const ConfigFile& config) {
  std::string out;
  for (const ConfigFile::Entry& entry : config.entries()) {
    out += narrow_lib(entry.key) + "[";
    for (const std::u16string& v : entry.values) out += narrow_lib(v) + "|";
    out += "]";
  }
  return out;
}

// Keys and values match with ASCII case ignored; emptying a key moves it to
// the end, and the entries after it are still found where they went.
TEST(ConfigFileTest, KeysAndValuesMatchIgnoringAsciiCaseAndFollowMoves) {
  ConfigFile config;
  for (const char16_t* key : {u"A", u"B", u"Ж"}) config.addValue(key, key);
  EXPECT_FALSE(config.addValue(u"b", u"b"));
  EXPECT_TRUE(config.addValue(u"ж", u"ж"));  // several bytes: never folded
  config.setValues(u"a", {});
  EXPECT_TRUE(config.addValue(u"B", u"b2"));
  EXPECT_FALSE(config.addValue(u"b", u"B2"));
  EXPECT_TRUE(config.addValue(u"A", u"a"));
  config.setValues(u"ж", {u"x", u"X"});  // in place, stored as given
  EXPECT_EQ(dump(config), "B[B|b2|]Ж[Ж|]ж[x|X|]a[a|]");
  ASSERT_NE(config.findValues(u"b"), nullptr);
  EXPECT_EQ(config.findValues(u"b")->back(), u"b2");
}

TEST(ConfigFileTest, KeysFoldAsTheCurrentLocaleFolds) {
  testsupport::ScopedEnv lcAll("LC_ALL", "C.UTF-8");
  testsupport::TurkishLocale turkish;
  if (!turkish.ok()) GTEST_SKIP() << "tr_TR.UTF-8 can be neither found nor built";
  ConfigFile config;
  config.addValue(u"Inst", u"/Install");
  config.addValue(u"inst", u"/INSTALL");  // another key, and "I" does not fold
  config.addValue(u"KEY", u"/a");
  config.addValue(u"key", u"/A");
  EXPECT_EQ(dump(config), "Inst[/Install|]inst[/INSTALL|]KEY[/a|]");
}

// UTF-16 little-endian with its byte-order mark.
std::string utf16le(const std::u16string& text) {
  std::string bytes = "\xFF\xFE";
  for (char16_t u : text) bytes += {static_cast<char>(u & 0xFF), static_cast<char>(u >> 8)};
  return bytes;
}

// Files are read as UTF-8 or, with a byte-order mark, UTF-16, and written as UTF-8.
TEST_F(StarterTest, LinesSplitIntoKeysAndValuesAndAreWrittenOnePerValue) {
  struct Case {
    std::string bytes, found;
    const char* written;  // null: the bytes read
  } cases[] = {
      {"a=b=c\n", "a[b=c|]", nullptr},
      {"=\n", "", ""},
      {" key\t= value \n", " key\t[ value |]", nullptr},
      {"a=1\r\nbare\r\n", "a[1\r|]bare\r[|]", "a=1\r\nbare\r=\n"},
      {"#c=1\n;d=\n", "#c[1|];d[|]", nullptr},
      {"K=/a\nk=/A\no=1\nK=/b\nK=/a\n", "K[/a|/b|]o[1|]", "K=/a\nK=/b\no=1\n"},
      {utf16le(u"Путь=/opt/Шаблоны\r\nk=v"), "Путь[/opt/Шаблоны\r|]k[v|]",
       "Путь=/opt/Шаблоны\r\nk=v\n"},
  };
  for (const Case& c : cases) {
    write_file(home("in.cfg"), c.bytes);
    ConfigFile config;
    read_config_file(w(home("in.cfg")), config);
    EXPECT_EQ(dump(config), c.found) << c.bytes;
    EXPECT_TRUE(write_config_file(w(home("out.cfg")), config).ok());
    EXPECT_EQ(read_file(home("out.cfg")), c.written ? c.written : c.bytes) << c.bytes;
  }
}

TEST_F(StarterTest, ReplacingKeepsModeAndLinksAndFailingKeepsTheOldFile) {
  ConfigFile config;
  config.addValue(u"k", std::u16string(300, u'n'));
  put("dir/real.cfg", "k=old\n");
  ASSERT_EQ(chmod(home("dir/real.cfg").c_str(), 0640), 0);
  ASSERT_EQ(symlink("real.cfg", home("dir/link.cfg").c_str()), 0);
  put("dir/zelbrun.cfg/inside", "a directory where the file should be");
  // A file-size limit below the new text's size makes writing itself fail.
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit saved;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  struct rlimit limit = {100, saved.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  struct Case {
    std::string path;
    unsigned code;
    int sysError;
  } cases[] = {
      {"missing/zelbrun.cfg", 1, ENOENT}, {"zelbrun.cfg", 1, EISDIR}, {"link.cfg", 2, EFBIG}};
  for (const Case& c : cases) {
    testsupport::Snapshot before = snapshot(home("dir"));
    Status status = write_config_file(w(home("dir/") + c.path), config);
    EXPECT_EQ(status.code, c.code) << c.path;
    EXPECT_EQ(narrow_lib(status.path), home("dir/") + c.path);
    EXPECT_EQ(status.sysError, c.sysError) << describe(status);
    EXPECT_EQ(snapshot(home("dir")), before) << c.path;
  }
  setrlimit(RLIMIT_FSIZE, &saved);
  signal(SIGXFSZ, SIG_DFL);

  EXPECT_TRUE(write_config_file(w(home("dir/link.cfg")), config).ok());
  struct stat st;
  ASSERT_EQ(lstat(home("dir/link.cfg").c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  ASSERT_EQ(stat(home("dir/real.cfg").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(read_file(home("dir/real.cfg")), "k=" + std::string(300, 'n') + "\n");
}

TEST_F(StarterTest, SearchOrderFollowsTheFlags) {
  put(kLocal, kKey + "/t/a\n" + kKey + "/t/l\nOther=1\n");
  put(kShared, kKey + "/t/b\n" + kKey + "\\T\\A\n");  // the same as /t/a once repaired
  put(kLocalBase, kKey + "C:\\x\\y\n");
  std::vector<std::u16string> ordinary, base;
  get_tmplts_list(ordinary, true, false);
  EXPECT_EQ(ordinary, (std::vector<std::u16string>{u"/t/a", u"/t/l", u"/t/b"}));
  // In base mode the ordinary per-user file stands in for the shared one.
  get_tmplts_list(base, true, true);
  EXPECT_EQ(base, (std::vector<std::u16string>{u"C:/x/y", u"/t/a", u"/t/l"}));
}

TEST_F(StarterTest, RecordingRewritesOnlyThePerUserFileByteForByte) {
  // NUL bytes in the first read block (in two values that differ only after
  // them), Cyrillic paths, a line longer than a read block, Ж cut by the
  // second block boundary, a stray Latin-1 byte ending the third block and a
  // cut character at the very end of the file.
  const char kNuls[] = "Nul=a\0b\nNul=a\0c\n";
  std::string before = std::string(kNuls, sizeof kNuls - 1) +
                       "DefaultVersion=8.2\nInstalledLocation=/opt/Орво/Плом 8/\nCommonInfoBases=" +
                       std::string(1100, 'b') + "\nInstallComponents=";
  before.append(2047 - before.size(), 'c');
  before += "\xD0\x96\n" + kKey + "/old/Шаблоны\nDistributiveLocation=/home/u/Загрузки/";
  before.append(3071 - before.size(), 'd');
  before += "\xE9tude\nCommonCfgLocation=/srv/общие\xD0";
  put(kLocal, before);
  put(kShared, kKey + "/shared\n");
  testsupport::Snapshot sharedBefore = snapshot(home(".plom8"));

  ConfigFile config;
  read_config_file(w(home(kLocal)), config);
  auto tail = [&](const char16_t* key, size_t n) {
    const std::vector<std::u16string>* v = config.findValues(key);
    return v ? v->front().substr(v->front().size() - n) : u"(none)";
  };
  EXPECT_EQ(tail(u"InstallComponents", 2), u"cЖ");
  EXPECT_EQ(tail(u"DistributiveLocation", 6), u"d\xDCE9tude");
  EXPECT_EQ(tail(u"CommonCfgLocation", 2), u"е\xDCD0");

  // The list, the shared file's entries after the per-user ones, takes the
  // key's place; every other line is written back as it was read.
  StarterState state = read_starter_state();
  EXPECT_TRUE(record_template_dir(state, u"/new/Шаблоны").ok());
  const std::string oldLine = kKey + "/old/Шаблоны\n";
  std::string expected = before + "\n";
  expected.insert(expected.find(oldLine) + oldLine.size(), kKey + "/shared\n");
  expected.insert(expected.find(oldLine), kKey + "/new/Шаблоны\n");
  EXPECT_EQ(read_file(home(kLocal)), expected);
  EXPECT_EQ(snapshot(home(".plom8")), sharedBefore);
}

TEST(CleanProposalTest, RemoteAndDecoratedProposals) {
  struct Case {
    std::u16string in, out;
  } cases[] = {
      {u"/a/file://b/file://c", u"/a/b/file://c"},
      {u"/x/http://y", u""},
      {u"ftp://host", u""},
      {u"HTTP://host", u"HTTP://host"},
      {u"file:///o\npt/\rt\r\n", u"/opt/t"},
  };
  for (const Case& c : cases) EXPECT_EQ(clean_proposal(c.in), c.out) << narrow_lib(c.in);
}

TEST_F(StarterTest, StateWritesBackToTheFileTheListCameFrom) {
  // Which files record_template_dir writes shows the flags and the list read.
  const std::string kNone = "(no file)",
                    kOld = kKey + "file:///opt/Шаблоны\r\n" + kKey + "/t/b\r\n";
  struct Case {
    std::string ordinary, base;
    bool writeOrdinary, writeBase;
    std::string proposal, record, ordinaryAfter, baseAfter;
  } cases[] = {
      {kNone, kNone, false, false, "", "/t/new", kNone, kNone},
      {kNone, "Other=1\n", false, false, "", "/t/new", kNone, "Other=1\n"},
      {kNone, kOld, false, true, "/opt/Шаблоны", "/t/new/", kNone, kKey + "/t/new\n" + kOld},
      {"Other=1\n", kOld, true, false, "", "/t/c//", "Other=1\n" + kKey + "/t/c/\n", kOld},
      {kKey + "/t/a\n" + kKey + "/t/b\n", kNone, true, false, "/t/a", "/T/A\\",
       kKey + "/T/A\n" + kKey + "/t/b\n", kNone},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ordinary + " | " + c.base);
    ASSERT_EQ(std::system(("rm -rf '" + home(".Orvo") + "'").c_str()), 0);
    if (c.ordinary != kNone) put(kLocal, c.ordinary);
    if (c.base != kNone) put(kLocalBase, c.base);
    StarterState state = read_starter_state();
    EXPECT_EQ(state.writeOrdinary, c.writeOrdinary);
    EXPECT_EQ(state.writeBase, c.writeBase);
    EXPECT_EQ(narrow_lib(state.proposal),
              c.proposal.empty() ? home(".plom8/Orvo/plom8//tmplts") : c.proposal);
    EXPECT_TRUE(record_template_dir(state, w(c.record)).ok());
    EXPECT_EQ(exists(home(kLocal)) ? read_file(home(kLocal)) : kNone, c.ordinaryAfter);
    EXPECT_EQ(exists(home(kLocalBase)) ? read_file(home(kLocalBase)) : kNone, c.baseAfter);
  }
}

TEST_F(StarterTest, FilesThatAreNotRegularReadAsMissingAndAreNeverWritten) {
  // A FIFO would block an open until a writer comes.
  put(kLocalBase, kKey + "/t/base\n");
  ASSERT_EQ(std::system(
                ("mkdir -p '" + home(".Orvo/zelbrun") + "' '" + home(".plom8//.Orvo/zelbrun") + "'")
                    .c_str()),
            0);
  ASSERT_EQ(mkfifo(home(kLocal).c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(home(kShared).c_str(), 0600), 0);
  const testsupport::Snapshot before = files();

  // The ordinary file is there, so it is the one to write, but it lists nothing.
  StarterState state = read_starter_state();
  EXPECT_TRUE(state.writeOrdinary);
  EXPECT_FALSE(state.writeBase);
  EXPECT_TRUE(state.templateDirs.empty());
  EXPECT_EQ(describe(record_template_dir(state, w("/t/new"))),
            "cannot write " + home(kLocal) + ": not a regular file");
  EXPECT_EQ(files(), before);
  struct stat st;
  ASSERT_EQ(lstat(home(kLocal).c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
}

TEST_F(StarterTest, LinkThatLeadsNowhereReadsAsMissingAndIsNeverReplaced) {
  ASSERT_EQ(std::system(("mkdir -p '" + home(".Orvo/zelbrun") + "'").c_str()), 0);
  auto link_to_nothing = [&] {
    unlink(home(kLocal).c_str());
    ASSERT_EQ(symlink("gone.cfg", home(kLocal).c_str()), 0);
  };
  // At start: no starter configuration, so nothing is written.
  link_to_nothing();
  const testsupport::Snapshot before = files();
  StarterState state = read_starter_state();
  EXPECT_FALSE(state.writeOrdinary || state.writeBase);
  EXPECT_TRUE(record_template_dir(state, w("/t/new")).ok());
  EXPECT_EQ(files(), before);
  // A file there at start that is a link to nothing when it is written: the
  // write fails and says why.
  unlink(home(kLocal).c_str());
  put(kLocal, kKey + "/t/a\n");
  state = read_starter_state();
  ASSERT_TRUE(state.writeOrdinary);
  link_to_nothing();
  Status status = record_template_dir(state, w("/t/new"));
  EXPECT_EQ(describe(status), "cannot write " + home(kLocal) + ": a link that leads nowhere");
  EXPECT_FALSE(exists(home(".Orvo/zelbrun/gone.cfg")));
}

// Two installers of one user that finish together: each re-reads, changes
// and writes the file while the other waits, so both targets are listed.
TEST_F(StarterTest, RunsFinishingTogetherBothStayListed) {
  put(kLocal, kKey + "/t/first\n");
  const StarterState atStart = read_starter_state();
  ASSERT_TRUE(atStart.writeOrdinary);
  for (int round = 0; round < 20; ++round) {
    int go[2];
    ASSERT_EQ(pipe(go), 0);
    const std::string dirs[] = {"/t/" + std::to_string(round) + "a",
                                "/t/" + std::to_string(round) + "b"};
    pid_t children[2];
    for (int i = 0; i < 2; ++i) {
      children[i] = fork();
      if (children[i] == 0) {
        close(go[1]);
        char c;
        (void)!read(go[0], &c, 1);  // both start when the pipe closes
        StarterState state = atStart;
        _exit(record_template_dir(state, w(dirs[i])).ok() ? 0 : 1);
      }
    }
    close(go[0]);
    close(go[1]);
    for (pid_t child : children) {
      int status = -1;
      ASSERT_EQ(waitpid(child, &status, 0), child);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const std::string file = read_file(home(kLocal));
    for (const std::string& dir : dirs)
      EXPECT_NE(file.find(kKey + dir + "\n"), std::string::npos)
          << "round " << round << ": " << dir;
  }
  EXPECT_EQ(snapshot(home(".Orvo")).size(), 2u);  // the folder and the file: no lock file left
}
}  // namespace
