#include "starter/config_locations.h"

#include <gtest/gtest.h>

#include <functional>

#include "starter_test_env.h"

using namespace startertest;

namespace {

TEST(ConfigLocationsTest, PathsFollowTheHomeDirectory) {
  testsupport::ScopedEnv home("HOME", "/home/u");
  struct Case {
    const char* name;
    std::function<std::u16string()> get;
    std::u16string expected;
  } cases[] = {
      {"home", home_dir, u"/home/u"},
      {"app data", [] { return app_data_dir(false); }, u"/home/u/.plom8/"},
      {"app data, all users", [] { return app_data_dir(true); }, u"/home/u/.plom8/"},
      {"platform data", [] { return zq_app_data_dir(false); }, u"/home/u/.plom8/Orvo/plom8/"},
      {"platform data 8.2", [] { return zq_app_data_dir_82(false); },
       u"/home/u/.plom8/Orvo\\Plom82"},
      {"local dir", get_local_config_file_dir, u"/home/u/.Orvo/zelbrun"},
      {"local path", get_local_config_file_path, u"/home/u/.Orvo/zelbrun/zelbrun.cfg"},
      {"local base dir", get_local_config_file_dir_base, u"/home/u/.Orvo/zelbrunt"},
      {"local base path", get_local_config_file_path_base, u"/home/u/.Orvo/zelbrunt/zelbrun.cfg"},
      {"shared dir", get_allusers_config_file_dir, u"/home/u/.plom8//.Orvo/zelbrun"},
      {"shared path", get_allusers_config_file_path, u"/home/u/.plom8//.Orvo/zelbrun/zelbrun.cfg"},
      {"shared base dir", get_allusers_config_file_dir_base, u"/home/u/.plom8/.Orvo/zelbrunt"},
      {"shared base path", get_allusers_config_file_path_base,
       u"/home/u/.Orvo/zelbrun/zelbrun.cfg"},
  };
  for (const Case& c : cases) EXPECT_EQ(narrow_lib(c.get()), narrow_lib(c.expected)) << c.name;
}

TEST(ConfigLocationsTest, HomeIsTheFirstWordOfTheExpansion) {
  {
    testsupport::ScopedEnv home("HOME", "/home/Пользователь");
    EXPECT_EQ(home_dir(), u"/home/Пользователь");
  }
  {
    // Without a home every path starts at the root.
    testsupport::ScopedEnv home("HOME", "");
    EXPECT_EQ(narrow_lib(get_local_config_file_path()), "/.Orvo/zelbrun/zelbrun.cfg");
  }
}

}  // namespace
