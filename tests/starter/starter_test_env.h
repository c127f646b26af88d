// Shared by the starter tests: a private home and temporary folder, a UTF-8
// locale, and helpers to look at a ConfigFile in UTF-8.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "compat/text.h"
#include "starter/config_file.h"
#include "support/test_support.h"

namespace startertest {

inline std::u16string w(const std::string& s) { return widen_lib(s); }

using Pairs = std::vector<std::pair<std::string, std::vector<std::string>>>;

// The entries of `config` as UTF-8 keys and values, in order.
inline Pairs pairs_of(const ConfigFile& config) {
  Pairs out;
  for (const ConfigFile::Entry& entry : config.entries()) {
    std::vector<std::string> values;
    for (const std::u16string& v : entry.values) values.push_back(narrow_lib(v));
    out.emplace_back(narrow_lib(entry.key), values);
  }
  return out;
}

inline std::vector<std::string> narrow_all(const std::vector<std::u16string>& list) {
  std::vector<std::string> out;
  for (const std::u16string& s : list) out.push_back(narrow_lib(s));
  return out;
}

inline std::vector<std::u16string> widen_all(const std::vector<std::string>& list) {
  std::vector<std::u16string> out;
  for (const std::string& s : list) out.push_back(widen_lib(s));
  return out;
}

// Every test gets HOME and TMPDIR inside its own temporary folder.
class PrivateHomeTest : public ::testing::Test {
 protected:
  PrivateHomeTest()
      : m_home(make_dir(m_root / "home")),
        m_tmp(make_dir(m_root / "tmp")),
        m_homeEnv("HOME", m_home),
        m_tmpEnv("TMPDIR", m_tmp),
        m_locale("LC_ALL", "C.UTF-8") {}

  // HOME + "/" + relative, as bytes.
  std::string home(const std::string& relative) const { return m_home + "/" + relative; }
  // Writes `bytes` to HOME/relative, creating the folders on the way.
  void put(const std::string& relative, const std::string& bytes) const {
    std::string path = home(relative);
    std::string cmd = "mkdir -p '" + path.substr(0, path.rfind('/')) + "'";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    testsupport::write_file(path, bytes);
  }

  static std::string make_dir(const std::string& path) {
    std::string cmd = "mkdir -p '" + path + "'";
    if (std::system(cmd.c_str()) != 0) ADD_FAILURE() << "cannot create " << path;
    return path;
  }

  testsupport::TempDir m_root;
  std::string m_home;
  std::string m_tmp;
  testsupport::ScopedEnv m_homeEnv;
  testsupport::ScopedEnv m_tmpEnv;
  testsupport::ScopedEnv m_locale;
};

}  // namespace startertest
