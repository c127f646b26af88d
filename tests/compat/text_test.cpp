#include <gtest/gtest.h>

#include <cstring>

#include "compat/text.h"
#include "support/test_support.h"
#include "turkish_locale.h"

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

// The UTF-8 form of a code point.
std::string utf8(char32_t cp) {
  std::string out;
  if (cp < 0x80) return std::string(1, char(cp));
  if (cp < 0x800) return {char(0xC0 | cp >> 6), char(0x80 | (cp & 0x3F))};
  if (cp < 0x10000)
    return {char(0xE0 | cp >> 12), char(0x80 | (cp >> 6 & 0x3F)), char(0x80 | (cp & 0x3F))};
  return {char(0xF0 | cp >> 18), char(0x80 | (cp >> 12 & 0x3F)), char(0x80 | (cp >> 6 & 0x3F)),
          char(0x80 | (cp & 0x3F))};
}

TEST(TextTest, EveryCharacterAboveFfffComesBackWholeBesideEscapedBytes) {
  ScopedEnv lcAll("LC_ALL", "C.UTF-8");
  // Every low surrogate value, the escape range DC80..DCFF among them, with
  // high surrogates from both ends.
  for (char32_t high : {0x10000u, 0x1F400u, 0x10FC00u}) {
    for (char32_t low = 0; low < 0x400; ++low) {
      const char32_t cp = high + low;
      const std::string bytes = utf8(cp);
      const std::u16string units = widen_lib(bytes);
      ASSERT_EQ(units, std::u16string({char16_t(0xD800 + ((cp - 0x10000) >> 10)),
                                       char16_t(0xDC00 + (low & 0x3FF))}))
          << std::hex << cp;
      ASSERT_EQ(narrow_lib(units), bytes) << std::hex << cp;
    }
  }
  // Escaped bytes right before and after real pairs, the pair's own low
  // surrogate value included (U+1F4A9 ends in DCA9; A9 is also a stray byte).
  const std::string pile = utf8(0x1F4A9);
  const std::string samples[] = {
      pile + "\xA9",       "\xA9" + pile,         "\xF0" + pile,       pile + "\xF0\x9F\x92",
      "\xF0\x9F" + pile,   pile + pile + "\xE9",  "caf\xE9" + utf8(0x1F600) + "\xED\xB2\xA9",
      utf8(0x10FFFF) + "\xFF", "\xC3" + utf8(0x10080) + "\xA9" + utf8(0x100FF),
  };
  for (const std::string& s : samples) EXPECT_EQ(narrow_lib(widen_lib(s)), s);
  std::u16string expected = u"\U0001F4A9";
  expected += char16_t(0xDCA9);
  EXPECT_EQ(widen_lib(pile + "\xA9"), expected);  // the pair, then the byte
}

TEST(TextTest, ConversionEntryPointsReportFullLengthAndStopAtNul) {
  ScopedEnv lcAll("LC_ALL", "C.UTF-8");
  char16_t out[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(MultiByteToWideChar(0, 0, "", 0, out, 4), 0);
  EXPECT_EQ(out[0], u'x');
  EXPECT_EQ(MultiByteToWideChar(0, 0, "abcdef", 6, out, 3), 6);  // fills 3, reports 6
  EXPECT_EQ(std::u16string(out, 4), u"abcx");
  EXPECT_EQ(widen_lib(std::string("ab\0cd", 5)), u"ab");

  EXPECT_EQ(narrow_lib(std::u16string(u"ab\0cd", 5)), "ab");

  // A short destination gets the whole characters that fit, never part of
  // one; the rest stays cleared, so a terminator is there only if it fits.
  std::u16string escaped = u"a";
  escaped += char16_t(0xDCE9);
  struct Case {
    std::u16string source;
    int capacity;
    int count;
    std::string written;  // the whole destination afterwards
  } cases[] = {
      {u"Ж", 8, 2, std::string("Ж\0\0\0\0\0\0", 8)},
      {u"Ж", 2, 2, "Ж"},
      {u"aЖ", 2, 3, std::string("a\0", 2)},
      {u"aЖ", 1, 3, "a"},
      {u"Жa", 1, 3, std::string(1, '\0')},
      {u"a\U0001F4A9", 4, 5, std::string("a\0\0\0", 4)},
      {u"a\U0001F4A9", 5, 5, "a\xF0\x9F\x92\xA9"},
      {u"\U0001F4A9", 3, 4, std::string(3, '\0')},
      {escaped, 2, 2, "a\xE9"},
      {escaped, 1, 2, "a"},
      {u"", 3, 0, "xxx"},  // nothing to convert: untouched
  };
  for (const Case& c : cases) {
    char bytes[9];
    std::memset(bytes, 'x', sizeof bytes);
    EXPECT_EQ(WideCharToMultiByte(0, 0, c.source.c_str(), int(c.source.size()), bytes, c.capacity,
                                  nullptr, nullptr),
              c.count)
        << narrow_lib(c.source) << " " << c.capacity;
    EXPECT_EQ(std::string(bytes, c.capacity), c.written) << narrow_lib(c.source) << " " << c.capacity;
    EXPECT_EQ(bytes[c.capacity], 'x') << "wrote past the capacity";
  }
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

TEST(TextTest, CompareNocaseFoldsAsTheCurrentLocaleDoes) {
  struct Case {
    std::u16string a, b;
    int sign;  // in the C locale
    int turkishSign;
  } cases[] = {
      {u"Tmp", u"TMP", 0, 0},
      {u"Ж", u"ж", -1, -1},  // several bytes: never folded
      {u"a", u"B", -1, -1},
      {u"b", u"A", 1, 1},
      {u"Inst", u"inst", 0, -1},  // Turkish: 'I' is not upper-case 'i'
      {u"WINDOWS", u"windows", 0, -1},
      {u"TEMPLATES", u"templates", 0, 0},
      {std::u16string(u"x\0b", 3), std::u16string(u"X\0C", 3), -1, -1},  // past a NUL too
  };
  auto sign = [](int v) { return (v > 0) - (v < 0); };
  auto check = [&](bool turkish) {
    for (const Case& c : cases) {
      const int expected = turkish ? c.turkishSign : c.sign;
      EXPECT_EQ(sign(compare_nocase(c.a, c.b)), expected) << narrow_lib(c.a) << " " << turkish;
      EXPECT_EQ(sign(compare_nocase(c.b, c.a)), -expected) << narrow_lib(c.a) << " " << turkish;
      EXPECT_EQ(nocase_key(c.a) == nocase_key(c.b), expected == 0)
          << narrow_lib(c.a) << " " << turkish;
    }
  };
  ScopedEnv lcAll("LC_ALL", "C.UTF-8");
  check(false);
  testsupport::TurkishLocale turkish;
  if (!turkish.ok()) GTEST_SKIP() << "tr_TR.UTF-8 can be neither found nor built";
  check(true);
}

}  // namespace
