// SPDX-License-Identifier: GPL-3.0-or-later
// Raw deflate (RFC 1951, no header) of a buffer on several threads, for the members of the 3MF
// package. The input is cut into chunks of a fixed size; each chunk is compressed by ISA-L's
// deflate at level 3 with the 32 KiB of input before it as its dictionary, and ends on a byte
// boundary with a non-final block (the last chunk with the final block), so the chunks joined
// make one valid stream. The chunks do not depend on each other's output: the stream is the same
// whatever the number of threads. The CRC-32 (as zip stores it) is computed beside.
//
// deflateraw throws nothing: it returns false when memory runs out or the compressor fails.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wf {

struct Deflated {
  std::vector<unsigned char> data;  // the raw deflate stream
  uint32_t crc = 0;                 // CRC-32 of the input
  uint64_t size = 0;                // bytes of input
};

// threads <= 0: the OpenMP default.
bool deflateraw(const unsigned char *input, size_t n, Deflated &out, int threads = 0);

// The chunk size of the stream (a property of the output, independent of the threads).
constexpr size_t deflatechunk = size_t{1} << 22;

}  // namespace wf
