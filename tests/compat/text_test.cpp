#include "compat/text.h"

#include <gtest/gtest.h>

#include "support/test_support.h"
#include "turkish_locale.h"

using testsupport::ScopedEnv;

namespace {

TEST(TextTest, WidenThenNarrowGivesBackEveryByte) {
  // UTF-8 and the plain C locale (ASCII) both take UTF-8 bytes apart the same way.
  for (const char* locale : {"C.UTF-8", "C"}) {
    ScopedEnv lcAll("LC_ALL", locale);
    const std::string samples[] = {"",
                                   "Каталог шаблонов",
                                   "< უკან",
                                   "a\tb\r\n",
                                   "caf\xe9",
                                   "ab\xe2\x82",
                                   "\xc0\xaf",  // Latin-1, cut, overlong
                                   "\xed\xa0\x80",
                                   "\xff\xfe",
                                   "ok\x80ok"};  // encoded surrogate, stray bytes
    for (const std::string& s : samples) EXPECT_EQ(narrow_lib(widen_lib(s)), s) << locale;
  }
  ScopedEnv lcAll("LC_ALL", "C.UTF-8");
  std::u16string lone = u"x";
  lone += char16_t(0xD800);
  EXPECT_EQ(narrow_lib(lone).substr(0, 1), "x");          // a lone surrogate does not stop it
  EXPECT_EQ(widen_lib(std::string("ab\0cd", 5)), u"ab");  // both stop at a NUL
  EXPECT_EQ(narrow_lib(std::u16string(u"ab\0cd", 5)), "ab");
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
      pile + "\xA9",
      "\xA9" + pile,
      "\xF0" + pile,
      pile + "\xF0\x9F\x92",
      "caf\xE9" + utf8(0x1F600) + "\xED\xB2\xA9",
      "\xC3" + utf8(0x10080) + "\xA9" + utf8(0x100FF),
  };
  for (const std::string& s : samples) EXPECT_EQ(narrow_lib(widen_lib(s)), s);
  std::u16string expected = u"\U0001F4A9";
  expected += char16_t(0xDCA9);
  EXPECT_EQ(widen_lib(pile + "\xA9"), expected);  // the pair, then the byte
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
      {u"Inst", u"inst", 0, -1},  // Turkish: 'I' is not upper-case 'i'
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
