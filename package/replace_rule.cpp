#include "package/replace_rule.h"

bool replaced_by_package(const struct stat64& st, const _FILETIME& packageTime) {
  if (!S_ISREG(st.st_mode)) return true;
  const _FILETIME installed = TimespecToFileTime(st.st_mtim.tv_sec, st.st_mtim.tv_nsec);
  return FileTimeToU64(installed) < FileTimeToU64(packageTime);
}
