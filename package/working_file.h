// The working file: the inflated package in the temporary directory. It is
// a file of this user that has no name, so that it goes with the process
// however the process ends, and no later start ever has to guess whether a
// file in the temporary directory was one.
#pragma once

#include <string>

#include "compat/file_system.h"
#include "compat/status.h"

// Creates the working file in the temporary directory, open read-write. On
// file systems that cannot make a file without a name, a new file "kptXXXXXX"
// (mode 0600, never through a link) is made and its name removed at once. On
// success `directory` names the temporary directory and `handle` is set; on
// failure nothing is left behind.
Status create_working_file(std::u16string& directory, HANDLE& handle);
