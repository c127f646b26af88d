#include "starter/config_file.h"

#include <gtest/gtest.h>

#include "starter_test_env.h"

using namespace startertest;

namespace {

// A ConfigFile with key "Templates" = {/opt/T, /b} and key "Other" = {x}.
ConfigFile sample() {
  ConfigFile config;
  config.addValue(u"Templates", u"/opt/T");
  config.addValue(u"Other", u"x");
  config.addValue(u"templates", u"/b");
  return config;
}

TEST(ConfigFileTest, AddValueKeepsOneEntryPerKeyAndNoCaseDuplicates) {
  ConfigFile config = sample();
  EXPECT_EQ(pairs_of(config), (Pairs{{"Templates", {"/opt/T", "/b"}}, {"Other", {"x"}}}));
  EXPECT_FALSE(config.addValue(u"TEMPLATES", u"/OPT/t"));
  EXPECT_TRUE(config.addValue(u"new", u""));
  EXPECT_FALSE(config.addValue(u"NEW", u""));
  // Only ASCII letters fold: Cyrillic upper and lower case are different values.
  EXPECT_TRUE(config.addValue(u"Other", u"Ж"));
  EXPECT_TRUE(config.addValue(u"Other", u"ж"));
  EXPECT_EQ(pairs_of(config),
            (Pairs{{"Templates", {"/opt/T", "/b"}}, {"Other", {"x", "Ж", "ж"}}, {"new", {""}}}));
}

TEST(ConfigFileTest, SetValueReplacesTheListInPlace) {
  struct Case {
    std::u16string key, value;
    bool result;
    Pairs after;
  } cases[] = {
      {u"TEMPLATES", u"/c", true, {{"Templates", {"/c"}}, {"Other", {"x"}}}},
      {u"other", u"X", false, {{"Templates", {"/opt/T", "/b"}}, {"Other", {"x"}}}},
      {u"other", u"y", true, {{"Templates", {"/opt/T", "/b"}}, {"Other", {"y"}}}},
      {u"Templates", u"/opt/t", true, {{"Templates", {"/opt/t"}}, {"Other", {"x"}}}},
      {u"Fresh", u"1", true, {{"Templates", {"/opt/T", "/b"}}, {"Other", {"x"}}, {"Fresh", {"1"}}}},
  };
  for (const Case& c : cases) {
    ConfigFile config = sample();
    EXPECT_EQ(config.setValue(c.key, c.value), c.result) << narrow_lib(c.key);
    EXPECT_EQ(pairs_of(config), c.after) << narrow_lib(c.key) << "=" << narrow_lib(c.value);
  }
}

TEST(ConfigFileTest, SetValuesKeepsPlaceUnlessEmptied) {
  ConfigFile config = sample();
  config.setValues(u"TEMPLATES", {u"/z", u"/Z"});  // copied as given, duplicates and all
  EXPECT_EQ(pairs_of(config), (Pairs{{"Templates", {"/z", "/Z"}}, {"Other", {"x"}}}));

  // An empty list moves the key to the end, spelled as given, with no values.
  config.setValues(u"templates", {});
  EXPECT_EQ(pairs_of(config), (Pairs{{"Other", {"x"}}, {"templates", {}}}));
  ASSERT_NE(config.findValues(u"Templates"), nullptr);
  EXPECT_TRUE(config.findValues(u"Templates")->empty());

  config.setValues(u"Added", {});
  config.setValues(u"Other", {u"1", u"2"});
  EXPECT_EQ(pairs_of(config), (Pairs{{"Other", {"1", "2"}}, {"templates", {}}, {"Added", {}}}));
}

TEST(ConfigFileTest, RemoveValueDropsEmptiedKeys) {
  ConfigFile config = sample();
  EXPECT_FALSE(config.removeValue(u"Templates", u"/absent"));
  EXPECT_FALSE(config.removeValue(u"Absent", u"/b"));
  EXPECT_EQ(pairs_of(config), pairs_of(sample()));

  EXPECT_TRUE(config.removeValue(u"templates", u"/OPT/T"));
  EXPECT_EQ(pairs_of(config), (Pairs{{"Templates", {"/b"}}, {"Other", {"x"}}}));
  EXPECT_TRUE(config.removeValue(u"Templates", u"/b"));
  EXPECT_EQ(config.findValues(u"Templates"), nullptr);
  EXPECT_EQ(pairs_of(config), (Pairs{{"Other", {"x"}}}));
}

}  // namespace
