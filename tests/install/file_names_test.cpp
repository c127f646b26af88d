// File names of every kind, from a source tree through a real package into a
// template directory: each installed name has exactly the bytes of its source.
#include <gtest/gtest.h>

#include <set>

#include "install/installer.h"
#include "package_fixture.h"
#include "tools/tpk_writer.h"

using namespace installtest;

namespace {

TEST(FileNamesTest, EveryKindOfNameIsInstalledAsItIsInTheSource) {
  ScopedEnv locale("LC_ALL", "C.UTF-8");
  const std::vector<std::string> names = {
      "plain.txt",
      "Шаблоны/Каталог.xml",               // Cyrillic
      "Tiếng Việt/mẫu.ini",                // Vietnamese, combining forms
      "\xF0\x90\x80\x80\xF0\x90\x83\xBF",  // U+10000 and U+100FF: DC00 and DCFF
      "emoji \xF0\x9F\x93\x81/\xF0\x9F\x93\x84 \xF0\x9F\x92\xBE.cfg",  // in folder names too
      "caf\xE9.txt",                                                   // Latin-1: not UTF-8 at all
      "\xE9\xF0\x9F\x92\xA9\xA9",  // stray bytes on both sides of a pair
  };
  Sandbox box;
  const std::string src = box.root() + "/src";
  for (size_t i = 0; i < names.size(); ++i)
    write_file(src + "/" + names[i], "file " + std::to_string(i) + "\n");
  tpk::Header header;
  std::vector<tpk::SourceFile> files;
  std::vector<std::string> warnings;
  std::string error;
  ASSERT_TRUE(tpk::collect_tree(src, "", files, warnings, error)) << error;
  ASSERT_EQ(files.size(), names.size());
  const std::string package = box.root() + "/plom8.tpk";
  ASSERT_TRUE(tpk::write_package(package, header, files, 6, nullptr, error)) << error;

  PackageReader reader;
  ASSERT_TRUE(load_package(reader, w(package)).ok());
  InstallProcessData data;
  data.init(&reader, w(box.target()));
  ASSERT_EQ(Installer(0).run(&data), 0u);

  std::set<std::string> installed;
  for (const auto& [path, kind] : snapshot(box.target()))
    if (kind.compare(0, 3, "100") == 0) installed.insert(path);  // regular files
  EXPECT_EQ(installed, std::set<std::string>(names.begin(), names.end()));
  for (size_t i = 0; i < names.size(); ++i)
    EXPECT_EQ(read_file(box.target() + "/" + names[i]), "file " + std::to_string(i) + "\n")
        << names[i];
}

}  // namespace
