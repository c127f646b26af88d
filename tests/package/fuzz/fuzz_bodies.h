// What the fuzz targets, the replay test and the unit tests check on one input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "package/inflate_decoder.h"

// Keeps every decoded byte.
struct CollectSink : InflateSink {
  void write(const uint8_t* data, size_t size) override {
    bytes.append(reinterpret_cast<const char*>(data), size);
  }
  std::string bytes;
};

// Reads `data` as a whole working file. Returns the broken invariant (an
// unexpected verdict, a refusal without a reason, an accepted entry outside
// the data area or refused by the gate), or null.
const char* catalogue_invariant_broken(const uint8_t* data, size_t size);

// Decodes `data` as a raw deflate stream with every built-in engine and two
// chunk sizes. Returns where they disagree (on success, on reaching the end
// marker, or on the bytes given out, refused streams included), or null;
// *verdict gets zlib's code.
const char* inflate_invariant_broken(const uint8_t* data, size_t size, unsigned* verdict);

// Prints `broken` and aborts, unless it is null.
void abort_if(const char* broken);
