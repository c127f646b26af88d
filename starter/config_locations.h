// Where the starter program's configuration files and the platform's data
// directory lie. Every function builds its result afresh from the home
// directory and touches nothing on disk. HOME below stands for home_dir().
#pragma once

#include <string>

// Starter configuration directory below a base directory.
inline const std::u16string kStartrDir = u".Orvo/zelbrun";
// The alternative ("base") starter configuration directory.
inline const std::u16string kStartrDirt = u".Orvo/zelbrunt";
// Name of every starter configuration file.
inline const std::u16string kStartFileName = u"zelbrun.cfg";

// First word of the shell expansion of "~"; empty when the expansion fails.
std::u16string home_dir();
// HOME/.plom8/ (the flag does not change the result).
std::u16string app_data_dir(bool allUsers);
// HOME/.plom8/Orvo/plom8/ (trailing "/" included).
std::u16string zq_app_data_dir(bool allUsers);
// HOME/.plom8/Orvo\Plom82 (Windows-shaped; unused by the installer).
std::u16string zq_app_data_dir_82(bool allUsers);

// HOME/.Orvo/zelbrun
std::u16string get_local_config_file_dir();
// HOME/.Orvo/zelbrun/zelbrun.cfg (the per-user file)
std::u16string get_local_config_file_path();
// HOME/.Orvo/zelbrunt
std::u16string get_local_config_file_dir_base();
// HOME/.Orvo/zelbrunt/zelbrun.cfg (the per-user file in base mode)
std::u16string get_local_config_file_path_base();
// HOME/.plom8//.Orvo/zelbrun (double "/" as it stands)
std::u16string get_allusers_config_file_dir();
// HOME/.plom8//.Orvo/zelbrun/zelbrun.cfg (the shared file)
std::u16string get_allusers_config_file_path();
// HOME/.plom8/.Orvo/zelbrunt (no separator added)
std::u16string get_allusers_config_file_dir_base();
// HOME/.Orvo/zelbrun/zelbrun.cfg: the shared file in base mode is the
// ordinary per-user file.
std::u16string get_allusers_config_file_path_base();
