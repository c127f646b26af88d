#include <gtest/gtest.h>

#include <cstring>

#include "compat/text.h"
#include "support/test_support.h"

using testsupport::ScopedEnv;

namespace {

TEST(TextTest, WidenThenNarrowGivesBackEveryByte) {
  // UTF-8 and the plain C locale (ASCII) both take UTF-8 bytes apart the same way.
  for (const char* locale : {"C.UTF-8", "C"}) {
    ScopedEnv lcAll("LC_ALL", locale);
    const std::string samples[] = {
        "", "plain", "Каталог шаблонов", "< უკან", "Quay lại", "a\tb\r\n",
        "a\xF0\x9F\x98\x80" "b",                      // above U+FFFF
        "caf\xe9", "\xd0", "ab\xe2\x82", "\xc0\xaf",  // Latin-1, cut, overlong
        "\xed\xa0\x80", "\xff\xfe", "ok\x80ok"};      // encoded surrogate, stray bytes
    for (const std::string& s : samples) EXPECT_EQ(narrow_lib(widen_lib(s)), s) << locale;
  }
  ScopedEnv lcAll("LC_ALL", "C.UTF-8");
  EXPECT_EQ(widen_lib("Каталог უკან"), u"Каталог უკან");
  EXPECT_EQ(widen_lib("caf\xe9"), std::u16string(u"caf") + char16_t(0xDCE9));
  EXPECT_EQ(widen_lib("a\xF0\x9F\x98\x80"), u"a\U0001F600");  // a surrogate pair
  std::u16string lone = u"x";
  lone += char16_t(0xD800);
  EXPECT_EQ(narrow_lib(lone).substr(0, 1), "x");  // a lone surrogate does not stop it
}

TEST(TextTest, ConversionEntryPointsReportFullLengthAndStopAtNul) {
  ScopedEnv lcAll("LC_ALL", "C.UTF-8");
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

TEST(TextTest, ReplaceAll) {
  struct Case {
    std::u16string text, from, to, expected;
    unsigned count;
  } cases[] = {
      {u"a\\b\\c", u"\\", u"/", u"a/b/c", 2}, {u"abc", u"", u"x", u"abc", 0},
      {u"", u"a", u"x", u"", 0},              {u"aaaa", u"aa", u"b", u"bb", 2},
      {u"aaa", u"aa", u"b", u"ba", 1},        {u"x--y--", u"--", u"", u"xy", 2},
      {u"abab", u"ab", u"abab", u"abababab", 2},
  };
  for (Case& c : cases) {
    std::u16string text = c.text;
    EXPECT_EQ(replace_all(text, c.from, c.to), c.count) << narrow_lib(c.text);
    EXPECT_EQ(text, c.expected) << narrow_lib(c.text);
  }
}

TEST(TextTest, NumbersToAndFromText) {
  EXPECT_EQ(string_toul(u"12ab"), 12u);
  EXPECT_EQ(string_toul(u" 12"), 0u);
  EXPECT_EQ(string_toul(u""), 0u);
  EXPECT_EQ(string_toul(u"4294967295"), 4294967295u);
  EXPECT_EQ(string_toul(u"4294967296"), 0u);  // wraps

  EXPECT_EQ(string_ito(-5, 10), u"-5");
  EXPECT_EQ(string_ito(-5, 16), u"fffffffb");
  EXPECT_EQ(string_ito(0, 10), u"0");
  EXPECT_EQ(string_uito(10, 16), u"a");
  EXPECT_EQ(string_uito(4294967295u, 10), u"-1");  // radix 10 reads the top bit as a sign
  EXPECT_EQ(string_uito(3000000000u, 10), u"-1294967296");
  EXPECT_EQ(string_uito(4294967295u, 16), u"ffffffff");
  EXPECT_EQ(string_ito(-2147483647 - 1, 10), u"-2147483648");
}

TEST(TextTest, CompareNocaseFoldsAsciiOnly) {
  EXPECT_EQ(compare_nocase(u"Tmp", u"TMP"), 0);
  EXPECT_NE(compare_nocase(u"Ж", u"ж"), 0);
  EXPECT_LT(compare_nocase(u"a", u"B"), 0);
  EXPECT_GT(compare_nocase(u"b", u"A"), 0);
  ScopedEnv turkish("LC_ALL", "tr_TR.UTF-8");  // locale present or not: folding stays ASCII
  EXPECT_EQ(compare_nocase(u"ConfigurationTemplatesLocation", u"CONFIGURATIONTEMPLATESLOCATION"),
            0);
}

}  // namespace
