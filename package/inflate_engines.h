// The two engines behind inflate_stream (inflate_decoder.h). Only the
// package reader's own decoding files include this.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

#include "package/inflate_decoder.h"

struct SimdInflateLibrary;

// Both engines take at most 4 GiB - 1 of input per call; a larger mapping
// is fed in slices of this size.
constexpr uint64_t kMaxInflateSlice = UINT_MAX;

// zlib alone, the reference engine (inflate_zlib.cpp).
InflateOutcome inflate_with_zlib(const uint8_t* data, uint64_t size, InflateSink& sink,
                                 size_t chunkSize);

// The SIMD engine block by block, zlib keeping the last word on what is
// valid (inflate_blockwise.h). Built only with the SIMD library's header.
InflateOutcome inflate_blockwise(const SimdInflateLibrary& lib, const uint8_t* data, uint64_t size,
                                 InflateSink& sink, size_t chunkSize);
