// The installer's answers to --help and --version.
#pragma once

#include <string>

#include "app/command_line.h"

// The usage text: the command line, where the package and the starter
// configuration are looked for, and the exit statuses.
std::string installer_usage();

// "installer VERSION\n".
std::string installer_version();

// Prints the usage (kHelp) or the version (kVersion) on standard output.
// Returns the exit status: 0, or 1 when standard output cannot be written.
int answer_launch_request(LaunchRequest request);
