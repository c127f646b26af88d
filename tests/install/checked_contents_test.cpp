// Contents damaged after the package was built (in the working file here) are
// caught before they reach their name when the record carries a check, and
// the run is rolled back.
#include <gtest/gtest.h>
#include <unistd.h>

#include "install/installer.h"
#include "package_fixture.h"
#include "tools/tpk_writer.h"

using namespace installtest;

namespace {

TEST(CheckedContentsTest, DamagedContentsFailTheRunBeforeTheyReachTheirName) {
  Sandbox box;
  const std::string src = box.root() + "/src";
  write_file(src + "/a.txt", "first file\n");
  write_file(src + "/sub/b.txt", "second file, the damaged one\n");
  write_file(box.target() + "/a.txt", "an older copy\n");
  set_mtime(box.target() + "/a.txt", 1000000000, 0);
  const Snapshot before = snapshot(box.target());

  tpk::Header header;
  std::vector<tpk::SourceFile> files;
  std::vector<std::string> warnings;
  std::string error;
  ASSERT_TRUE(tpk::collect_tree(src, "", files, warnings, error)) << error;
  ASSERT_TRUE(tpk::compute_checks(files, error)) << error;
  const std::string package = box.root() + "/plom8.tpk";
  ASSERT_TRUE(tpk::write_package(package, header, files, 6, nullptr, error)) << error;

  PackageReader reader;
  ASSERT_TRUE(load_package(reader, w(package)).ok());
  ASSERT_EQ(reader.files.size(), 2u);
  const int fd = static_cast<int>(reinterpret_cast<intptr_t>(reader.handle));
  ASSERT_EQ(pwrite(fd, "X", 1, off_t(reader.files[1].offset + 3)), 1);

  InstallProcessData data;
  data.init(&reader, w(box.target()));
  Installer installer(0);
  EXPECT_NE(installer.run(&data), 0u);
  EXPECT_EQ(installer.failure().operation, Operation::kCheckContents);
  EXPECT_EQ(narrow_lib(installer.failure().path), box.target() + "/sub/b.txt");
  EXPECT_EQ(snapshot_difference(before, snapshot(box.target())), "");
  EXPECT_TRUE(snapshot(box.tmp()).size() <= 1);  // the working file alone
}

}  // namespace
