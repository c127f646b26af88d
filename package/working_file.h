// The working file: the inflated package in the temporary directory. It is
// a new regular file of this user, created without following any link, and
// locked for as long as it is open, so that a later start can tell the file
// of a run that is gone (removed then) from one still in use.
#pragma once

#include <string>

#include "compat/file_system.h"
#include "compat/status.h"

// Creates "<temporary directory>/kptXXXXXX" (mode 0600), opened read-write
// and locked. On success `path` and `handle` are set; on failure nothing is
// left behind.
Status create_working_file(std::u16string& path, HANDLE& handle);

// Deletes this user's working files in the temporary directory whose lock
// nobody holds (their run was killed). Returns how many went.
unsigned remove_orphan_working_files();
