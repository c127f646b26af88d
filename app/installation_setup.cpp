#include "app/installation_setup.h"

#include "compat/file_finder.h"

std::string prepare_installation(const std::u16string& packagePath, PackageReader& package,
                                 StarterState& starter) {
  FileFinder finder;
  if (packagePath.empty() || !finder.reset(packagePath)) return "IDS_ERROR_NOSOURCE";
  finder.close();
  starter = read_starter_state();
  return load_package(package, packagePath);
}
