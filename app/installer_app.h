// The application object: reads the command line, picks the language and
// runs the wizard, or, in silent mode without a display, the installation
// alone.
#pragma once

#include <string>

class CInstallerApp {
 public:
  // argv must outlive the object.
  CInstallerApp(int argc, char** argv) : m_argc(argc), m_argv(argv) {}

  // Runs the installer to its end and returns the process exit status: 0
  // with a display; without one that of run_headless_install in silent
  // mode, else 1.
  int InitInstance();

 private:
  int m_argc;
  char** m_argv;
  int m_langId = 0;
  std::u16string m_title;
};

struct LaunchOptions;

// Silent installation with no window: the same steps as the wizard, with
// what a message box or the final page would say written to standard error
// (a failure followed by a line naming what failed and why); nothing goes to
// standard output. Exit status: 0 installed; 1 failed (the target as it
// was); 2 installed, but the starter file could not be updated; 3
// interrupted (the target as it was); 4 failed and something could not be
// put back (the folder holding it is named).
int run_headless_install(const LaunchOptions& options);
