// Random parts of new names (temporary files, staged copies), so that two
// processes, or two threads, seldom try the same name.
#pragma once

#include <string>

// Six random letters and digits. The caller still creates the file
// exclusively and tries again when the name is taken.
std::string random_suffix();
