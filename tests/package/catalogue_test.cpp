// Reading the working file's header and catalogue, and the entry gate.
#include "package/catalogue.h"

#include <gtest/gtest.h>

#include "compat/text.h"
#include "package_test_util.h"

using namespace pkgtest;

// Sound layouts (no reason expected) and damaged ones, each refused with its reason.
TEST(CatalogueTest, LayoutsAcceptedOrRefused) {
  const std::string sound = working_file({{u"f", 1, "data"}}), zeros(40, '\0');
  auto kind0 = [](const std::string& rest) { return u32(0) + std::string(12, '\0') + rest; };
  struct Case {
    std::string bytes;
    const char* fault;    // part of the reason given; null when the bytes are sound
    size_t dataSize = 0;  // bytes after the catalogue, when sound
  } cases[] = {
      {sound, nullptr, 4},
      {kind0(u32(0)), nullptr, 0},
      // The surplus of a record longer than its fields is skipped.
      {u32(7) + u32(0) + u32(2) + file_record(u"one", 1, 0, 2, "surplus") +
           file_record(u"two", 2, 2, 1) + "abc",
       nullptr, 3},
      {"", "header kind"},
      {std::string("\0\0\0\0\1\0", 6), "ends inside a header string"},
      {u32(0) + u32(10) + "abcdef", "header string runs past"},
      {u32(1) + "\1", "language count"},
      {u32(1) + u32(1000) + u32(20), "more language records"},
      {u32(1) + u32(1) + u32(19) + zeros, "smaller than its fields"},
      {u32(1) + u32(1) + u32(20) + std::string(12, '\0') + u32(9) + u32(0), "past its record"},
      {kind0("\1\0"), "file count"},
      {kind0(u32(5) + file_record(u"f", 0, 0, 0)), "more file records"},
      {kind0(u32(1) + u32(23) + zeros), "smaller than its fields"},
      {kind0(u32(1) + u32(200) + zeros), "record runs past"},
      {kind0(u32(1) + u32(24) + u32(3) + zeros), "past its record"},
      {kind0(u32(1) + file_record(u"f", 0, 2, 3) + "abcd"), "past the end of the data area"},
      {kind0(u32(1) + file_record(u"f", 0, 0xFFFFFFFF, 2) + "ab"), "data area"},  // 32-bit wrap
      {kind0(u32(2) + file_record(u"ok", 0, 0, 0) + file_record(u"a\\..\\x", 0, 0, 0)), "'..'"},
  };
  for (const Case& c : cases) {
    MemorySource source(reinterpret_cast<const uint8_t*>(c.bytes.data()), c.bytes.size());
    std::vector<LanguageEntry> languages;
    std::vector<FileEntry> files;
    CatalogueInfo info;
    unsigned code = read_catalogue(source, c.bytes.size(), languages, files, info);
    SCOPED_TRACE(std::to_string(&c - cases) + ": " + info.fault);
    EXPECT_EQ(code, c.fault ? 13u : 0u);
    if (c.fault)
      EXPECT_NE(info.fault.find(c.fault), std::string::npos);
    else
      EXPECT_EQ(c.bytes.size() - info.dataStart, c.dataSize);
  }
}

TEST(CatalogueTest, EntryGate) {
  const std::vector<std::u16string> names[] = {
      // refused, then accepted
      {u"", u"/abs", u"\\\\server\\share", u"c:rel", u"..", u"x\\..\\..\\y",
       std::u16string(u"a\0b", 3)},
      {u"dir/sub\\a.txt", u"...", u"a..b/..c/d..", u"1:x", u"a/C:/x"}};
  for (bool accepted : {false, true})
    for (const std::u16string& name : names[accepted])
      EXPECT_EQ(catalogue_entry_fault(name, 0, 0, 0) == nullptr, accepted) << narrow_lib(name);
  struct Range {
    uint64_t offset, size, dataSize;
    bool accepted;
  } ranges[] = {{0, 10, 10, true},  {5, 5, 10, true},   {10, 0, 10, true},
                {0, 11, 10, false}, {11, 0, 10, false}, {1, UINT64_MAX, 10, false}};
  for (const Range& c : ranges)
    EXPECT_EQ(catalogue_entry_fault(u"a", c.offset, c.size, c.dataSize) == nullptr, c.accepted)
        << c.offset << "+" << c.size;
}
