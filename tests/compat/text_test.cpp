#include <gtest/gtest.h>

#include <cstring>

#include "compat/text.h"
#include "support/test_support.h"

using testsupport::ScopedEnv;

namespace {

// Every test runs in a UTF-8 locale unless it says otherwise.
class TextTest : public ::testing::Test {
 protected:
  ScopedEnv m_lcAll{"LC_ALL", "C.UTF-8"};
};

TEST_F(TextTest, WidenAndNarrowRoundTripText) {
  const std::string samples[] = {"", "plain", "Каталог шаблонов", "< უკან", "Quay lại",
                                 "a\tb\r\n", "日本"};
  for (const std::string& s : samples) {
    std::u16string w = widen_lib(s);
    EXPECT_EQ(narrow_lib(w), s) << s;
  }
  EXPECT_EQ(widen_lib("Каталог"), u"Каталог");
  EXPECT_EQ(widen_lib("უკან"), u"უკან");
  EXPECT_EQ(narrow_lib(u"Ünïcödé"), "Ünïcödé");
}

TEST_F(TextTest, InvalidBytesSurviveWidenThenNarrow) {
  // Latin-1 bytes, a cut multibyte sequence, an overlong form, an encoded surrogate.
  const std::string bad[] = {"caf\xe9", "\xd0", "ab\xe2\x82", "\xc0\xaf", "\xed\xa0\x80",
                             "\xff\xfe", "ok\x80ok"};
  for (const std::string& s : bad) {
    std::u16string w = widen_lib(s);
    EXPECT_EQ(narrow_lib(w), s);
  }
  EXPECT_EQ(widen_lib("caf\xe9"), std::u16string(u"caf") + char16_t(0xDCE9));
}

TEST_F(TextTest, InvalidBytesSurviveInTheCLocaleToo) {
  ScopedEnv c("LC_ALL", "C");
  const std::string s = "Докум\xe9nt";
  EXPECT_EQ(narrow_lib(widen_lib(s)), s);
}

TEST_F(TextTest, AstralCharacterSurvivesAsASurrogatePair) {
  std::u16string w = widen_lib("a\xF0\x9F\x98\x80" "b");  // U+1F600
  EXPECT_EQ(w, u"a\U0001F600b");
  EXPECT_EQ(narrow_lib(w), "a\xF0\x9F\x98\x80" "b");
  // A lone surrogate cannot stop a conversion either.
  std::u16string lone = u"x";
  lone += char16_t(0xD800);
  EXPECT_EQ(narrow_lib(lone).substr(0, 1), "x");
}

TEST_F(TextTest, ConversionEntryPointsReportFullLengthAndStopAtNul) {
  char16_t out[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(MultiByteToWideChar(0, 0, "", 0, out, 4), 0);
  EXPECT_EQ(out[0], u'x');
  EXPECT_EQ(MultiByteToWideChar(0, 0, "abcdef", 6, out, 3), 6);  // fills 3, reports 6
  EXPECT_EQ(std::u16string(out, 4), u"abcx");
  EXPECT_EQ(widen_lib(std::string("ab\0cd", 5)), u"ab");

  char bytes[8];
  std::memset(bytes, 'x', sizeof bytes);
  EXPECT_EQ(WideCharToMultiByte(0, 0, u"Ж", 1, bytes, 8, nullptr, nullptr), 2);
  EXPECT_EQ(std::string(bytes), "Ж");  // terminated: the destination was cleared
  EXPECT_EQ(narrow_lib(std::u16string(u"ab\0cd", 5)), "ab");
}

TEST_F(TextTest, ReplaceAll) {
  struct Case {
    std::u16string text, from, to, expected;
    unsigned count;
  } cases[] = {
      {u"a\\b\\c", u"\\", u"/", u"a/b/c", 2},
      {u"abc", u"", u"x", u"abc", 0},
      {u"", u"a", u"x", u"", 0},
      {u"aaaa", u"aa", u"b", u"bb", 2},
      {u"aaa", u"aa", u"b", u"ba", 1},
      {u"x--y--", u"--", u"", u"xy", 2},
      {u"abab", u"ab", u"abab", u"abababab", 2},
      {u"abc", u"z", u"y", u"abc", 0},
  };
  for (Case& c : cases) {
    std::u16string text = c.text;
    EXPECT_EQ(replace_all(text, c.from, c.to), c.count) << narrow_lib(c.text);
    EXPECT_EQ(text, c.expected) << narrow_lib(c.text);
  }
}

TEST_F(TextTest, NumbersToAndFromText) {
  EXPECT_EQ(string_toul(u"12ab"), 12u);
  EXPECT_EQ(string_toul(u" 12"), 0u);
  EXPECT_EQ(string_toul(u"-3"), 0u);
  EXPECT_EQ(string_toul(u""), 0u);
  EXPECT_EQ(string_toul(u"4294967295"), 4294967295u);
  EXPECT_EQ(string_toul(u"4294967296"), 0u);  // wraps

  EXPECT_EQ(string_ito(-5, 10), u"-5");
  EXPECT_EQ(string_ito(-5, 16), u"fffffffb");
  EXPECT_EQ(string_ito(0, 10), u"0");
  EXPECT_EQ(string_uito(10, 16), u"a");
  EXPECT_EQ(string_uito(8, 10), u"8");
  EXPECT_EQ(string_uito(4294967295u, 10), u"-1");
  EXPECT_EQ(string_uito(3000000000u, 10), u"-1294967296");
  EXPECT_EQ(string_uito(4294967295u, 16), u"ffffffff");
  EXPECT_EQ(string_ito(-2147483647 - 1, 10), u"-2147483648");
  EXPECT_EQ(string_uito(5, 2), u"101");
}

TEST_F(TextTest, CompareNocaseFoldsAsciiOnly) {
  EXPECT_EQ(compare_nocase(u"Tmp", u"TMP"), 0);
  EXPECT_EQ(compare_nocase(u"/opt/T", u"/OPT/t"), 0);
  EXPECT_NE(compare_nocase(u"Ж", u"ж"), 0);
  EXPECT_LT(compare_nocase(u"a", u"B"), 0);
  EXPECT_GT(compare_nocase(u"b", u"A"), 0);
  EXPECT_LT(compare_nocase(u"", u"a"), 0);
  ScopedEnv turkish("LC_ALL", "tr_TR.UTF-8");  // locale present or not: folding stays ASCII
  EXPECT_EQ(compare_nocase(u"ConfigurationTemplatesLocation", u"CONFIGURATIONTEMPLATESLOCATION"),
            0);
}

}  // namespace
