#include "texts/resources.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::ScopedEnv;

namespace {

// Every key the program knows: the English table's.
const std::vector<std::string> kAllKeys = resource_keys(kLangEn);

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

// The keys of a table, sorted; a key written twice shows up twice.
std::vector<std::string> sorted_keys(LangIdType id) {
  std::vector<std::string> keys = resource_keys(id);
  std::sort(keys.begin(), keys.end());
  return keys;
}

TEST_F(ResourcesTest, EveryLanguageHasEveryKeyOnceWithText) {
  const std::vector<std::string> english = sorted_keys(kLangEn);
  EXPECT_EQ(std::adjacent_find(english.begin(), english.end()), english.end());
  for (int id = kLangRu; id <= kLangTr; ++id) {
    EXPECT_EQ(sorted_keys(LangIdType(id)), english) << "language " << id;
    for (const std::string& key : kAllKeys) {
      EXPECT_FALSE(text_in(LangIdType(id), key.c_str()).empty())
          << "language " << id << " key " << key;
    }
  }
}

// Every key the program's sources ask for is in the tables.
TEST_F(ResourcesTest, EveryKeyTheProgramUsesExists) {
  const std::regex key("\"(ID[SR]_[A-Z_]+)\"");
  size_t used = 0;
  for (const char* folder : {"app", "install", "package", "starter", "ui"}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(
             std::string(TPL_SOURCE_DIR) + "/" + folder)) {
      std::ifstream in(entry.path());
      const std::string text((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
      for (std::sregex_iterator m(text.begin(), text.end(), key), end; m != end; ++m, ++used) {
        EXPECT_NE(std::find(kAllKeys.begin(), kAllKeys.end(), (*m)[1].str()), kAllKeys.end())
            << entry.path() << ": " << (*m)[1];
      }
    }
  }
  EXPECT_GT(used, 20u);
}

// One text of each table, decoded letter for letter: a table given to the
// wrong language shows.
TEST_F(ResourcesTest, TextsComeOutLetterForLetter) {
  const struct {
    LangIdType id;
    const char* key;
    std::u16string expected;
  } cases[] = {
      {kLangEn, "IDS_WIZARD_BACK", u"< Back"},
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
      {kLangKk, "IDS_WIZARD_BACK", u"< Артқа"},
      {kLangVi, "IDS_WIZARD_CANCEL", u"Hủy bỏ"},
      {kLangTr, "IDS_WIZARD_NEXT", u"İleri >"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(text_in(c.id, c.key), c.expected) << "language " << c.id << " key " << c.key;
  }
}

}  // namespace
