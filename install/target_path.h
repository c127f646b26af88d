// Where a run really installs to, whatever the spelling of the target.
#pragma once

#include <string>

// The absolute form of `dir` ending in "/": the longest existing prefix of it
// resolved through realpath (links, ".", ".."), the rest appended with "."
// and ".." folded as text, so that no level is ever created only to be left
// again by "..". A relative `dir` is taken from the working directory. Empty
// stays empty.
std::u16string resolve_target(const std::u16string& dir);

// Whether every path the run may use for a catalogue name of `nameBytes`
// bytes (narrowed) stays below PATH_MAX: the file below `targetDir`, its
// temporary name beside it, and its place in a backup directory below
// `tempDir`.
bool fits_path_max(const std::u16string& targetDir, size_t nameBytes,
                   const std::u16string& tempDir);
