#include "starter/config_locations.h"

#include <wordexp.h>

#include "compat/text.h"

namespace {

const std::u16string kAppDataDirName = u".plom8";
const std::u16string kVendorDirName = u"Orvo";
const std::u16string kProductDirPrefix = u"plom";
constexpr int kMajorVersion = 8;
constexpr int kMinorVersion = 2;

}  // namespace

std::u16string home_dir() {
  wordexp_t words{};
  int result = wordexp("~", &words, WRDE_NOCMD);
  std::u16string home;
  if (result == 0 && words.we_wordc > 0) home = widen_lib(words.we_wordv[0]);
  // A failure for want of space (glibc's answer to an empty home) may leave
  // words allocated.
  if (result == 0 || result == WRDE_NOSPACE) wordfree(&words);
  return home;
}

std::u16string app_data_dir(bool) {
  return home_dir() + kPathSeparator + kAppDataDirName + kPathSeparator;
}

std::u16string zq_app_data_dir(bool allUsers) {
  return app_data_dir(allUsers) + kVendorDirName + kPathSeparator + kProductDirPrefix +
         string_ito(kMajorVersion, 10) + kPathSeparator;
}

std::u16string zq_app_data_dir_82(bool allUsers) {
  return app_data_dir(allUsers) + u"Orvo\\Plom" + string_ito(kMajorVersion, 10) +
         string_ito(kMinorVersion, 10);
}

std::u16string get_local_config_file_dir() { return home_dir() + kPathSeparator + kStartrDir; }

std::u16string get_local_config_file_path() {
  return get_local_config_file_dir() + kPathSeparator + kStartFileName;
}

std::u16string get_local_config_file_dir_base() {
  return home_dir() + kPathSeparator + kStartrDirt;
}

std::u16string get_local_config_file_path_base() {
  return get_local_config_file_dir_base() + kPathSeparator + kStartFileName;
}

std::u16string get_allusers_config_file_dir() {
  return app_data_dir(true) + kPathSeparator + kStartrDir;
}

std::u16string get_allusers_config_file_path() {
  return get_allusers_config_file_dir() + kPathSeparator + kStartFileName;
}

std::u16string get_allusers_config_file_dir_base() { return app_data_dir(true) + kStartrDirt; }

std::u16string get_allusers_config_file_path_base() {
  return get_local_config_file_dir() + kPathSeparator + kStartFileName;
}
