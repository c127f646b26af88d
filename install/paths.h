// Paths as the engine and its journal use them: byte strings as the system
// sees them, compared after "." , ".." and repeated "/" are folded.
#pragma once

#include <string>

// `path` made absolute (a relative one is taken from the working directory)
// with ".", ".." and repeated "/" folded as text, no trailing "/" ("/" for
// the root). Links are not looked at.
std::string fold_path(const std::string& path);

// Whether something stands at `path` (a link counts, not what it leads to):
// false only when the lookup proves there is nothing.
bool path_exists(const std::string& path);

// Whether folded `path` lies strictly below folded `dir`.
bool is_below(const std::string& path, const std::string& dir);

// The text before the last "/" of a folded path ("/" directly below the root).
std::string parent_of(const std::string& path);

// How a run spells its target for "mkdir -p", ending in "/": the longest
// existing prefix of `dir` resolved through its links, then the rest as
// given, ".." included, so that mkdir -p makes every folder the spelling
// names and the folded spelling is where the files go. `existingBytes` is
// set to the length of the resolved prefix. A relative `dir` is taken from
// the working directory; empty stays empty.
std::string spell_target(const std::string& dir, size_t& existingBytes);
