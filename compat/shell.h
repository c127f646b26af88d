// Shell commands and the path predicates built on them.
#pragma once

#include <string>

// Runs `command` with /bin/sh -c and returns the raw wait status (-1 when no
// shell could be started), as system(3) does.
int run_linux_command(const char* command);

// Number of commands started so far by this process (for tests and benchmarks).
unsigned long shell_command_count();

// `path` made safe inside double quotes: a backslash before '"', '$', '`', '\'.
std::string shell_escape(const std::string& path);

// First line of the command's standard output, its last character removed.
std::u16string get_one_line_output(const std::u16string& command);

// The directory GetTempFileName puts a new file in: $TMPDIR when it names a
// directory, else `preferred` when it is one, else /tmp; no trailing "/".
std::string temp_file_directory(const std::string& preferred);

// Whether a new file can be created in `directory` (see GetTempFileName).
bool isWritePermitted(const std::u16string& directory);

// True only for the single character "/".
bool isDiskRoot(const std::u16string& path);
