// What the fuzz targets and the replay test do with one input.
#pragma once

#include <cstddef>
#include <cstdint>

// Reads `data` as a whole working file, once in one piece and once through
// a source that hands out a few bytes per read. Aborts when the two
// disagree or when an accepted catalogue has an entry outside the data area
// or one that the gate refuses.
void fuzz_catalogue_input(const uint8_t* data, size_t size);

// Decodes `data` as a raw deflate stream with every built-in engine and two
// chunk sizes. Aborts when they disagree on success, on reaching the end
// marker, or (on success) on the decoded bytes.
void fuzz_inflate_input(const uint8_t* data, size_t size);
