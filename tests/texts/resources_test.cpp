#include "texts/resources.h"

#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"

using testsupport::ScopedEnv;

namespace {

// Read during static initialisation, before any test can choose a language.
const std::u16string kNextBeforeAnyChoice = LoadResString("IDS_WIZARD_NEXT");

const char* const kAllKeys[] = {
    "IDS_WIZARD_BACK",      "IDS_WIZARD_NEXT",         "IDS_WIZARD_FINISH",
    "IDS_WIZARD_CANCEL",    "IDS_ACCEPT_CANCEL",       "IDS_TITLE_INSTALLER",
    "IDS_PREPARECOPY",      "IDS_INSTALL_ERROR",       "IDS_ERROR_NOSOURCE",
    "IDS_ERROR_NOTARGET",   "IDS_ERROR_NOSPACE",       "IDS_CHOOSEDIR_FOLDER",
    "IDS_CHOOSEDIR_TITLE",  "IDR_MAINFRAME",           "IDS_SETUP_EMPTYTARGET",
    "IDS_INSTALL_FINISH",   "IDS_ERROR_DAMAGEDSOURCE", "IDS_DEFPRODUCT",
    "IDS_DEFPROVIDER",      "IDS_SUCCESS_FINISH",      "IDS_SUCCESS_OPENDESCR",
    "IDS_PROGRESS_START",   "IDS_ERROR_FINISH",        "IDS_CANCEL_FINISH",
    "IDS_BROWSE_SELDIR",    "IDS_BROWSE_OK",           "IDS_BROWSE_CANCEL",
    "IDS_WELCOME_TITLE",    "IDS_SETUP_EXISTEDTARGET", "IDS_DESTINATION_PROMPT",
    "IDS_TEMPLATE_CATALOG",
};

// Texts are decoded as UTF-8; the current language is English again afterwards.
class ResourcesTest : public ::testing::Test {
 protected:
  ~ResourcesTest() override { set_resource_lang(kLangEn); }
  ScopedEnv m_lcAll{"LC_ALL", "C.UTF-8"};
};

std::u16string text_in(LangIdType id, const char* key) {
  set_resource_lang(id);
  return LoadResString(key);
}

TEST_F(ResourcesTest, EnglishIsCurrentBeforeAnyChoice) {
  EXPECT_EQ(kNextBeforeAnyChoice, u"Next >");
}

TEST_F(ResourcesTest, EveryLanguageHasEveryKeyWithText) {
  static_assert(std::size(kAllKeys) == 31);
  for (int id = kLangRu; id <= kLangTr; ++id) {
    for (const char* key : kAllKeys) {
      EXPECT_FALSE(text_in(LangIdType(id), key).empty()) << "language " << id << " key " << key;
    }
    EXPECT_TRUE(LoadResString("IDS_NOT_A_KEY").empty());
  }
}

TEST_F(ResourcesTest, CodesMapToTheirIds) {
  const struct {
    const char* code;
    LangIdType id;
  } cases[] = {
      {"ru", kLangRu}, {"uk", kLangUk}, {"en", kLangEn}, {"lv", kLangLv}, {"lt", kLangLt},
      {"bg", kLangBg}, {"de", kLangDe}, {"ro", kLangRo}, {"ka", kLangKa}, {"kk", kLangKk},
      {"vi", kLangVi}, {"tr", kLangTr},
      // Only the exact two lower-case letters are known.
      {"EN", kLangNone}, {"En", kLangNone}, {"en_US", kLangNone}, {"e", kLangNone},
      {"fr", kLangNone}, {"", kLangNone}, {"en ", kLangNone}, {"C", kLangNone},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(get_lang_id_by_lang_code(c.code), c.id) << '"' << c.code << '"';
  }
  EXPECT_EQ(get_lang_id_by_lang_code(std::string("en\0", 3)), kLangNone);
}

TEST_F(ResourcesTest, UnknownLanguageOrKeyGivesEmptyText) {
  for (int id : {0, 13, -1}) {
    for (const char* key : kAllKeys) {
      EXPECT_TRUE(text_in(LangIdType(id), key).empty()) << "language " << id << " key " << key;
    }
  }
  set_resource_lang(kLangDe);
  EXPECT_EQ(LoadResString("IDS_WIZARD_NEXT"), u"Weiter >");
  for (const char* key : {"IDS_WIZARD_NEXT ", "ids_wizard_next", "IDS_WIZARD_NEX",
                          "IDS_WIZARD_NEXTX", " IDS_WIZARD_NEXT", ""}) {
    EXPECT_TRUE(LoadResString(key).empty()) << '"' << key << '"';
  }
}

TEST_F(ResourcesTest, TextsComeOutLetterForLetter) {
  const struct {
    LangIdType id;
    const char* key;
    std::u16string expected;
  } cases[] = {
      {kLangEn, "IDS_WIZARD_BACK", u"< Back"},
      {kLangEn, "IDR_MAINFRAME", u"Installing configuration"},
      {kLangEn, "IDS_BROWSE_CANCEL", u"Cancel"},
      {kLangEn, "IDS_ERROR_FINISH",
       u"An error occurred during the installation process. Installation canceled. Template "
       u"directory has not been changed."},
      {kLangRu, "IDS_WIZARD_BACK", u"< Назад"},
      {kLangUk, "IDS_WIZARD_FINISH", u"ОК"},
      {kLangLv, "IDS_WIZARD_BACK", u"< Atpakaļ"},
      {kLangLt, "IDS_DEFPROVIDER", u"<Tiekėjas>"},
      {kLangBg, "IDS_BROWSE_CANCEL", u"Отказ"},
      {kLangDe, "IDS_WIZARD_BACK", u"< Zurück"},
      {kLangRo, "IDS_ERROR_NOSPACE", u"Spațiu insuficient în folderul Temp."},
      {kLangKa, "IDS_WIZARD_BACK", u"< უკან"},
      {kLangKa, "IDS_WIZARD_NEXT", u"შემდეგ>"},
      {kLangKk, "IDS_ERROR_NOSOURCE", u" plom8.tpk орнату файлы жинағы табылған жоқ."},
      {kLangKk, "IDS_ERROR_DAMAGEDSOURCE",
       u" plom8.tpk орнату файлы бүлінген немесе орнатудың осы программасы арналмаған."},
      {kLangVi, "IDS_WIZARD_CANCEL", u"Hủy bỏ"},
      {kLangVi, "IDS_WIZARD_FINISH", u"Đồng ý"},
      {kLangTr, "IDS_WIZARD_NEXT", u"İleri >"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(text_in(c.id, c.key), c.expected) << "language " << c.id << " key " << c.key;
  }
}

}  // namespace
