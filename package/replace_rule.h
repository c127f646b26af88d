// When a package file takes the place of what is installed there: the rule
// the installer follows, and which the package lister's plans state.
#pragma once

#include <sys/stat.h>

#include "compat/file_time.h"

// Whether what `st` describes is to be replaced by a package file whose
// last-write time is `packageTime`: anything but a regular file (handed on,
// to be moved aside or refused), or a regular file strictly older, to 100 ns.
// An equal or newer file is kept.
bool replaced_by_package(const struct stat64& st, const _FILETIME& packageTime);
