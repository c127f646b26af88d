// Reading the working file's header and catalogue, and the entry gate.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "package/catalogue.h"
#include "package_test_util.h"

using namespace pkgtest;
using config::FileEntry;
using config::LanguageEntry;

namespace {

struct Read {
  unsigned code;
  std::vector<LanguageEntry> languages;
  std::vector<FileEntry> files;
  config::CatalogueInfo info;
};

Read read(const std::string& bytes) {
  Read r;
  config::MemorySource source(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  r.code = config::read_catalogue(source, bytes.size(), r.languages, r.files, r.info);
  return r;
}

// Kind-0 header with empty texts, then `rest`.
std::string kind0(const Bytes& rest) {
  return Bytes().u32(0).string(u"").string(u"").string(u"").append(rest).str();
}

}  // namespace

TEST(CatalogueTest, SoundLayouts) {
  // Kind 0: one "en" entry; offsets stay relative; the data starts after the catalogue.
  std::string w = working_file({{u"a/b.txt", 0x0123456789ABCDEFull, "hello"}, {u"c", 7, "xyz"}},
                               u"Product", u"Vendor", u"doc.pdf");
  Read r = read(w);
  ASSERT_EQ(r.code, 0u) << r.info.fault;
  EXPECT_EQ(r.info.kind, 0u);
  ASSERT_EQ(r.languages.size(), 1u);
  EXPECT_EQ(r.languages[0].language, u"en");
  EXPECT_EQ(r.languages[0].title1, u"Product");
  EXPECT_EQ(r.languages[0].title2, u"Vendor");
  EXPECT_EQ(r.languages[0].descriptionRef, u"doc.pdf");
  ASSERT_EQ(r.files.size(), 2u);
  EXPECT_EQ(r.info.dataStart, w.size() - 8);
  EXPECT_EQ(r.files[0].offset, 0u);
  EXPECT_EQ(r.files[0].size, 5u);
  EXPECT_EQ(r.files[0].time.dwLowDateTime, 0x89ABCDEFu);
  EXPECT_EQ(r.files[0].time.dwHighDateTime, 0x01234567u);
  EXPECT_EQ(r.files[1].offset, 5u);
  EXPECT_EQ(w.substr(r.info.dataStart + r.files[1].offset, r.files[1].size), "xyz");

  // Kind != 0 with a language table; records longer than their fields have
  // the surplus skipped, so the next record is read from the right place.
  Bytes b;
  b.u32(7).u32(2);
  b.append(language_record(u"en", u"P", u"V", u"http://x/doc", 9));
  b.append(language_record(u"de", u"P-de", u"V-de", u"", 0));
  b.u32(2);
  b.append(file_record(u"one", 1, 0, 2, 13));
  b.append(file_record(u"two\\three", 2, 2, 1, 0));
  b.raw("abc");
  r = read(b.str());
  ASSERT_EQ(r.code, 0u) << r.info.fault;
  EXPECT_EQ(r.info.kind, 7u);
  ASSERT_EQ(r.languages.size(), 2u);
  EXPECT_EQ(r.languages[0].descriptionRef, u"http://x/doc");
  EXPECT_EQ(r.languages[1].language, u"de");
  EXPECT_EQ(r.languages[1].title2, u"V-de");
  ASSERT_EQ(r.files.size(), 2u);
  EXPECT_EQ(r.files[1].name, u"two\\three");
  EXPECT_EQ(r.files[1].offset, 2u);
  EXPECT_EQ(r.info.dataStart, b.size() - 3);

  // No files at all, and a file of size 0 at the very end of the data.
  r = read(kind0(Bytes().u32(0)));
  EXPECT_EQ(r.code, 0u);
  EXPECT_TRUE(r.files.empty());
  r = read(kind0(Bytes().u32(1).append(file_record(u"empty", 0, 0, 0))));
  EXPECT_EQ(r.code, 0u) << r.info.fault;
}

TEST(CatalogueTest, DamagedLayoutsAreRefused) {
  const std::string sound = working_file({{u"f", 1, "data"}});
  struct Case {
    const char* what;
    std::string bytes;
    const char* fault;  // expected reason
  } cases[] = {
      {"empty file", "", "header kind"},
      {"ends inside the header kind", "\0\0", "header kind"},
      {"ends inside a header string count", std::string("\0\0\0\0\1\0", 6), "header string"},
      {"header string past the end", Bytes().u32(0).u32(10).units(u"abc").str(),
       "header string runs past"},
      {"huge string count", Bytes().u32(0).u32(0x7FFFFFFF).str(), "header string runs past"},
      {"ends inside the language count", Bytes().u32(1).raw("\1").str(), "language count"},
      {"language count larger than the file", Bytes().u32(1).u32(1000).u32(20).str(),
       "more language records"},
      {"language record past the end",
       Bytes().u32(1).u32(1).u32(400).string(u"en").raw(std::string(16, '\0')).str(),
       "record runs past"},
      {"language record smaller than its fields",
       Bytes().u32(1).u32(1).u32(19).raw(std::string(40, '\0')).str(), "smaller than its fields"},
      {"language string past its record",
       Bytes().u32(1).u32(1).u32(20).u32(0).u32(0).u32(0).u32(9).u32(0).str(), "past its record"},
      {"ends inside the file count", kind0(Bytes().raw("\1\0")), "file count"},
      {"file count larger than the file", kind0(Bytes().u32(5).append(file_record(u"f", 0, 0, 0))),
       "more file records"},
      {"file record smaller than its fields",
       kind0(Bytes().u32(1).u32(23).raw(std::string(40, '\0'))), "smaller than its fields"},
      {"file record past the end",
       kind0(Bytes().u32(1).u32(200).raw(std::string(40, '\0'))), "record runs past"},
      {"name longer than its record",
       kind0(Bytes().u32(1).u32(24).u32(3).raw(std::string(40, '\0'))), "past its record"},
      {"contents past the data area", kind0(Bytes().u32(1).append(file_record(u"f", 0, 2, 3)).raw("abcd")),
       "past the end of the data area"},
      {"offset past the data area",
       kind0(Bytes().u32(1).append(file_record(u"f", 0, 0xFFFFFFFF, 0))), "data area"},
      {"offset + size wrapping 32 bits",
       kind0(Bytes().u32(1).append(file_record(u"f", 0, 0xFFFFFFFF, 2)).raw("ab")), "data area"},
      {"cut inside the data", sound.substr(0, sound.size() - 1), "data area"},
      {"empty name", kind0(Bytes().u32(1).append(file_record(u"", 0, 0, 0))), "empty"},
      {"absolute name", kind0(Bytes().u32(1).append(file_record(u"/etc/x", 0, 0, 0))), "absolute"},
      {"absolute with backslash", kind0(Bytes().u32(1).append(file_record(u"\\x", 0, 0, 0))),
       "absolute"},
      {"drive prefix", kind0(Bytes().u32(1).append(file_record(u"C:x", 0, 0, 0))), "drive"},
      {"dot-dot component", kind0(Bytes().u32(1).append(file_record(u"a/../../x", 0, 0, 0))), "'..'"},
      {"dot-dot with backslashes", kind0(Bytes().u32(1).append(file_record(u"a\\..\\x", 0, 0, 0))),
       "'..'"},
      {"name that is dot-dot", kind0(Bytes().u32(1).append(file_record(u"..", 0, 0, 0))), "'..'"},
      {"NUL inside a name",
       kind0(Bytes().u32(1).append(file_record(std::u16string(u"..\0x", 4), 0, 0, 0))), "NUL"},
      {"bad second entry",
       kind0(Bytes().u32(2).append(file_record(u"ok", 0, 0, 0)).append(file_record(u"/x", 0, 0, 0))),
       "absolute"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Read r = read(c.bytes);
    EXPECT_EQ(r.code, 13u);
    EXPECT_NE(r.info.fault.find(c.fault), std::string::npos) << r.info.fault;
  }
}

TEST(CatalogueTest, EntryGate) {
  struct Case {
    std::u16string name;
    uint64_t offset, size, dataSize;
    bool accepted;
  } cases[] = {
      {u"a.txt", 0, 10, 10, true},
      {u"dir/sub/a.txt", 5, 5, 10, true},
      {u"dir\\sub\\a.txt", 0, 0, 0, true},
      {u"...", 0, 0, 0, true},
      {u"a..b/..c/d..", 0, 0, 0, true},
      {u".hidden/./x", 0, 0, 0, true},
      {u"1:x", 0, 0, 0, true},
      {u"a/C:/x", 0, 0, 0, true},
      {u"", 0, 0, 0, false},
      {u"/abs", 0, 0, 0, false},
      {u"\\\\server\\share", 0, 0, 0, false},
      {u"c:rel", 0, 0, 0, false},
      {u"Z:\\x", 0, 0, 0, false},
      {u"..", 0, 0, 0, false},
      {u"../x", 0, 0, 0, false},
      {u"x/..", 0, 0, 0, false},
      {u"x\\..\\..\\y", 0, 0, 0, false},
      {std::u16string(u"a\0b", 3), 0, 0, 0, false},
      {u"a", 0, 11, 10, false},
      {u"a", 11, 0, 10, false},
      {u"a", 10, 0, 10, true},
      {u"a", 1, UINT64_MAX, 10, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.name.begin(), c.name.end()));
    EXPECT_EQ(config::catalogue_entry_fault(c.name, c.offset, c.size, c.dataSize) == nullptr,
              c.accepted);
  }
}
