// Makes tr_TR.UTF-8 the process's C locale for one scope, compiling it with
// localedef into a private folder when the system does not have it. Turkish
// is the locale where byte-wise case folding differs from ASCII folding:
// tolower('I') is not 'i' there.
#pragma once

#include <locale.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "support/test_support.h"

namespace testsupport {

class TurkishLocale {
 public:
  TurkishLocale() {
    if (setlocale(LC_ALL, "tr_TR.UTF-8")) {
      m_ok = true;
      return;
    }
    // -c: write the locale even when localedef has warnings; whether it
    // worked shows in setlocale below.
    const std::string command =
        "localedef -c -i tr_TR -f UTF-8 '" + (m_dir / "tr_TR.UTF-8") + "' >/dev/null 2>&1";
    (void)std::system(command.c_str());
    m_locpath = std::make_unique<ScopedEnv>("LOCPATH", m_dir.path());
    m_ok = setlocale(LC_ALL, "tr_TR.UTF-8") != nullptr;
  }
  ~TurkishLocale() { setlocale(LC_ALL, "C"); }
  TurkishLocale(const TurkishLocale&) = delete;
  TurkishLocale& operator=(const TurkishLocale&) = delete;

  // False when the locale could be neither found nor built.
  bool ok() const { return m_ok; }

 private:
  TempDir m_dir;
  std::unique_ptr<ScopedEnv> m_locpath;
  bool m_ok = false;
};

}  // namespace testsupport
