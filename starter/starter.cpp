#include "starter/starter.h"

#include <set>

#include "compat/file_finder.h"
#include "compat/file_system.h"
#include "compat/text.h"
#include "starter/config_file_io.h"
#include "starter/config_locations.h"

namespace {

struct LessNocase {
  bool operator()(const std::u16string& a, const std::u16string& b) const {
    return compare_nocase(a, b) < 0;
  }
};

using NocaseSet = std::set<std::u16string, LessNocase>;

}  // namespace

std::u16string Starter::localPath() const {
  return m_base ? get_local_config_file_path_base() : get_local_config_file_path();
}

std::u16string Starter::sharedPath() const {
  return m_base ? get_allusers_config_file_path_base() : get_allusers_config_file_path();
}

void Starter::loadConfig() {
  read_config_file(sharedPath(), m_shared);
  read_config_file(localPath(), m_local);
}

void Starter::getConfigFilesValues(bool localFirst, const char16_t* key,
                                   std::vector<std::u16string>& out, bool stopAfterTwo) const {
  std::vector<const ConfigFile*> order;
  order.push_back(localFirst ? &m_local : &m_third);
  order.push_back(&m_shared);
  if (!stopAfterTwo) order.push_back(localFirst ? &m_third : &m_local);

  NocaseSet taken;
  const std::u16string keyText(key);
  for (const ConfigFile* config : order) {
    const std::vector<std::u16string>* values = config->findValues(keyText);
    if (!values) continue;
    for (const std::u16string& value : *values)
      if (taken.insert(value).second) out.push_back(value);
  }
}

void Starter::replaceWrongSeparators(std::vector<std::u16string>& list) {
  for (std::u16string& entry : list) replace_all(entry, kBadPathSeparator, kPathSeparator);
}

void Starter::removePathDuplicates(std::vector<std::u16string>& list) {
  NocaseSet seen;
  for (auto it = list.begin(); it != list.end();) {
    std::u16string normal = *it;
    if (!normal.empty() && normal.back() != u'\\' && normal.back() != u'/') normal += u'\\';
    if (seen.insert(normal).second)
      ++it;
    else
      it = list.erase(it);
  }
}

void Starter::getTmpltsList(std::vector<std::u16string>& list, bool localFirst) {
  loadConfig();
  getConfigFilesValues(localFirst, kConfigFileFieldTemplatesLocation, list, localFirst);
  replaceWrongSeparators(list);
  removePathDuplicates(list);
}

void Starter::setTmpltsList(const std::vector<std::u16string>& list) {
  loadConfig();
  std::vector<std::u16string> unique = list;
  removePathDuplicates(unique);
  m_local.setValues(kConfigFileFieldTemplatesLocation, unique);
  saveLocalConfigFile();
}

void Starter::saveLocalConfigFile() {
  std::u16string path = localPath();
  FileFinder finder;
  if (!finder.reset(path)) {
    size_t cut = path.find_last_of(u"\\/");
    if (cut != std::u16string::npos) FileSystem::CreateDirectory(path.substr(0, cut));
  }
  write_config_file(path, m_local);
}

void get_tmplts_list(std::vector<std::u16string>& list, bool localFirst, bool base) {
  Starter(base).getTmpltsList(list, localFirst);
}

void set_tmplts_list(const std::vector<std::u16string>& list, bool base) {
  Starter(base).setTmpltsList(list);
}
