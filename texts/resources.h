// The interface texts: twelve languages, each with the same keys.
#pragma once

#include <string>
#include <vector>

// 0: no language; 1..12 the languages (3 is English, "en").
enum LangIdType : int {
  kLangNone = 0,
  kLangRu = 1,
  kLangUk = 2,
  kLangEn = 3,
  kLangLv = 4,
  kLangLt = 5,
  kLangBg = 6,
  kLangDe = 7,
  kLangRo = 8,
  kLangKa = 9,
  kLangKk = 10,
  kLangVi = 11,
  kLangTr = 12,
};

// Id of the language whose code equals `code` exactly ("de" -> 7), else 0.
LangIdType get_lang_id_by_lang_code(const std::string& code);
// The codes of every language, in id order ("ru", "uk", "en", ...).
std::vector<std::string> get_lang_codes();
// The keys of `id`'s table in the order written (empty for an unknown id).
std::vector<std::string> resource_keys(LangIdType id);
// Makes `id` the current language, unchecked (an unknown id gives empty texts).
void set_resource_lang(LangIdType id);
// Text of `key` in the current language, or empty when there is none.
std::u16string LoadResString(const std::string& key);
