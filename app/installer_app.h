// The application object: reads the command line, picks the language and
// runs the wizard, or, in silent mode without a display, the installation
// alone.
#pragma once

#include <string>

class CInstallerApp {
 public:
  // argv must outlive the object.
  CInstallerApp(int argc, char** argv) : m_argc(argc), m_argv(argv) {}

  // Runs the installer to its end and returns the process exit status: 0,
  // except 1 for a failed installation in silent mode without a display and
  // 1 when no display is available for the wizard at all.
  int InitInstance();

 private:
  int m_argc;
  char** m_argv;
  int m_langId = 0;
  std::u16string m_title;
};

struct LaunchOptions;

// Silent installation with no window: the same steps as the wizard, with
// what a message box would say written to standard error. 0 after a
// successful installation, 1 otherwise.
int run_headless_install(const LaunchOptions& options);
