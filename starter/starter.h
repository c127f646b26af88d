// The list of template directories kept in the starter program's
// configuration files under "ConfigurationTemplatesLocation".
#pragma once

#include <string>
#include <vector>

#include "compat/status.h"
#include "starter/config_file.h"

// Keys of the starter's configuration files. Only the templates location is
// read or written by the installer.
constexpr char16_t kConfigFileFieldDefaultVersion[] = u"DefaultVersion";
constexpr char16_t kConfigFileFieldCommonInfoBases[] = u"CommonInfoBases";
constexpr char16_t kConfigFileFieldInstalledLocation[] = u"InstalledLocation";
constexpr char16_t kConfigFileFieldDistributiveLocation[] = u"DistributiveLocation";
constexpr char16_t kConfigFileFieldCommonCfgLocation[] = u"CommonCfgLocation";
constexpr char16_t kConfigFileFieldInstallComponents[] = u"InstallComponents";
constexpr char16_t kConfigFileFieldTemplatesLocation[] = u"ConfigurationTemplatesLocation";

// One read or one write of the starter configuration; lives on the stack for
// a single call. In base mode the "base" paths are used: the per-user file
// under .Orvo/zelbrunt, with the ordinary per-user file as the shared one.
class Starter {
 public:
  explicit Starter(bool base) : m_base(base) {}

  // Reads the shared file, then the per-user file (missing files read empty).
  void loadConfig();

  // Appends to `out` the values of `key`, skipping values equal (case
  // ignored) to one already taken by this call. Order searched: the per-user
  // configuration when `localFirst`, else the never-loaded third one; then the
  // shared one; then, unless `stopAfterTwo`, the third one when `localFirst`,
  // else the per-user one.
  void getConfigFilesValues(bool localFirst, const char16_t* key, std::vector<std::u16string>& out,
                            bool stopAfterTwo) const;

  // Replaces every "\\" with "/" in every entry.
  static void replaceWrongSeparators(std::vector<std::u16string>& list);

  // Removes later duplicates (case ignored). An entry not ending in "\\" or
  // "/" is compared with a "\\" appended, so a/b matches a/b\ but not a/b/.
  static void removePathDuplicates(std::vector<std::u16string>& list);

  // Loads the files and appends the template directories to `list`: per-user
  // values first when `localFirst`, else shared first; "\\" read as "/";
  // duplicates removed.
  void getTmpltsList(std::vector<std::u16string>& list, bool localFirst);

  // Loads the files, stores `list` (duplicates removed) as the per-user
  // file's template directories and writes that file. The failure of
  // write_config_file, if any. Like prependTmpltsDir, the reading, change and
  // writing are exclusive between installers ("<file>.lock" beside the
  // per-user file, removed afterwards; never waited for longer than 10 s).
  Status setTmpltsList(const std::vector<std::u16string>& list);

  // Loads the files, puts `dir` in front of the template directories they
  // list now (as getTmpltsList(list, true) gives them), removes duplicates,
  // stores the result as the per-user file's list and writes that file.
  // `written` receives the list stored. The failure of write_config_file, if
  // any. Two installers doing this at once do it one after the other, so
  // both directories end up in the file.
  Status prependTmpltsDir(const std::u16string& dir, std::vector<std::u16string>& written);

  // Writes the per-user configuration, creating its directory when the file
  // does not exist yet. The shared file is never written. The failure of
  // write_config_file, if any.
  Status saveLocalConfigFile();

 private:
  std::u16string localPath() const;
  std::u16string sharedPath() const;

  ConfigFile m_local;
  ConfigFile m_shared;
  ConfigFile m_third;  // never loaded: takes part in the search order only
  bool m_base;
};

// Appends the template directories of the starter configuration to `list`
// (Starter(base).getTmpltsList(list, localFirst)).
void get_tmplts_list(std::vector<std::u16string>& list, bool localFirst, bool base);

// Stores `list` in the per-user starter file (Starter(base).setTmpltsList).
// On failure (code 1 or 2, operation kWriteStarter) the file stays as it was.
Status set_tmplts_list(const std::vector<std::u16string>& list, bool base);
