#include "app/command_line.h"

#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "app/usage.h"
#include "support/test_support.h"

using testsupport::ScopedEnv;
using testsupport::TempDir;

namespace {

struct Case {
  std::vector<std::string> args;  // after the program name
  bool silent;
  bool useCwd;
  LangIdType langId;
  std::u16string code;
};

// Calls `f` (parse_command_line or launch_request) with "installer" and `args`.
template <typename F>
auto call(F f, std::vector<std::string> args) {
  args.insert(args.begin(), "installer");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  return f(static_cast<int>(args.size()), argv.data());
}

std::string describe(const std::vector<std::string>& args) {
  return ::testing::PrintToString(args);
}

void expect_case(const Case& c) {
  LaunchOptions got = call(parse_command_line, c.args);
  EXPECT_EQ(got.silent, c.silent) << describe(c.args);
  EXPECT_EQ(got.useCwd, c.useCwd) << describe(c.args);
  EXPECT_EQ(got.langId, c.langId) << describe(c.args);
  EXPECT_EQ(got.languageCode, c.code) << describe(c.args);
}

// Each case starts from the C process locale and leaves it there.
class CommandLineTest : public ::testing::Test {
 protected:
  CommandLineTest() { std::setlocale(LC_ALL, "C"); }
  ~CommandLineTest() override { std::setlocale(LC_ALL, "C"); }
};

TEST_F(CommandLineTest, OptionsUnderTheCLocale) {
  ScopedEnv lcAll("LC_ALL", "C");
  const Case cases[] = {
      {{}, false, false, kLangEn, u"en"},
      // usecwd counts only first and only spelled exactly so.
      {{"usecwd", "-S"}, true, true, kLangEn, u"en"},
      {{"-S", "usecwd"}, true, false, kLangEn, u"en"},
      {{"Usecwd"}, false, false, kLangEn, u"en"},
      // Only the second character names the option, in either case, after - or /.
      {{"-sfoo"}, true, false, kLangEn, u"en"},
      {{"/lru"}, false, false, kLangRu, u"ru"},
      {{"-x", "S", "L", "-Lkk"}, false, false, kLangKk, u"kk"},
      // The first -L ends the scan; codes are taken as given, not case-folded.
      {{"-Lde", "-S"}, false, false, kLangDe, u"de"},
      {{"-Lxx", "-Lde"}, false, false, kLangEn, u"en"},
      {{"-LDE"}, false, false, kLangEn, u"en"},
      {{"-L"}, false, false, kLangEn, u"en"},
  };
  for (const Case& c : cases) expect_case(c);
}

// Real locale names: copies of the C.UTF-8 locale installed under private names.
TEST_F(CommandLineTest, LanguageFromTheLocale) {
  const std::filesystem::path source = "/usr/lib/locale/C.utf8";
  if (!std::filesystem::is_directory(source)) GTEST_SKIP() << "no C.utf8 locale files to copy";
  TempDir locales;
  for (const char* name : {"de_DE.UTF-8", "uk_UA.UTF-8", "fr_FR.UTF-8"}) {
    std::filesystem::copy(source, locales / name, std::filesystem::copy_options::recursive);
  }
  ScopedEnv locPath("LOCPATH", locales.path());

  const struct {
    const char* locale;
    Case c;
    const char* processLocaleAfter;  // setlocale runs only when -L gave no known code
  } cases[] = {
      {"de_DE.UTF-8", {{"-Lde_DE"}, false, false, kLangDe, u"de"}, "de_DE.UTF-8"},
      {"uk_UA.UTF-8", {{"/lxx", "-S"}, false, false, kLangUk, u"uk"}, "uk_UA.UTF-8"},
      {"fr_FR.UTF-8", {{"-S"}, true, false, kLangEn, u"en"}, "fr_FR.UTF-8"},
      {"de_DE.UTF-8", {{"-Ltr"}, false, false, kLangTr, u"tr"}, "C"},
  };
  for (const auto& entry : cases) {
    ScopedEnv lcAll("LC_ALL", entry.locale);
    std::setlocale(LC_ALL, "C");
    expect_case(entry.c);
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), entry.processLocaleAfter)
        << entry.locale << " " << describe(entry.c.args);
  }
}

TEST_F(CommandLineTest, HelpAndVersionCountOnlyAsTheFirstArgument) {
  ScopedEnv lcAll("LC_ALL", "C");
  const struct {
    std::vector<std::string> args;
    LaunchRequest request;
  } cases[] = {
      {{}, LaunchRequest::kRun},
      {{"-h"}, LaunchRequest::kHelp},
      {{"/?"}, LaunchRequest::kHelp},
      {{"--version", "--help"}, LaunchRequest::kVersion},
      // Anywhere else they are unknown options: the run goes on.
      {{"-Lde", "--version"}, LaunchRequest::kRun},
      // Only the exact words.
      {{"-H"}, LaunchRequest::kRun},
      {{"--helpme"}, LaunchRequest::kRun},
  };
  for (const auto& c : cases)
    EXPECT_EQ(call(launch_request, c.args), c.request) << describe(c.args);
}

TEST(UsageTest, NamesEveryLanguageAndEveryExitStatus) {
  const std::string usage = installer_usage();
  const std::vector<std::string> codes = get_lang_codes();
  std::string line;
  for (const std::string& code : codes) line += (line.empty() ? "" : " ") + code;
  EXPECT_EQ(line, "ru uk en lv lt bg de ro ka kk vi tr");
  EXPECT_NE(usage.find(line), std::string::npos) << usage;
  for (const char* part : {"\n    0  installed", "\n    1  failed", "\n    2  installed, but",
                           "\n    3  cancelled", "\n    4  failed, and"})
    EXPECT_NE(usage.find(part), std::string::npos) << part;
  std::istringstream lines(usage);
  for (std::string l; std::getline(lines, l);) EXPECT_LE(l.size(), 80u) << l;
}

}  // namespace
