// SPDX-License-Identifier: GPL-3.0-or-later
// Raw deflate (RFC 1951, no header) of a buffer on several threads, for the members of the 3MF
// package. The input is cut into chunks of a fixed size; each chunk is compressed by ISA-L's
// deflate at level 3 with the 32 KiB of input before it as its dictionary, and ends on a byte
// boundary with a non-final block (the last chunk with the final block), so the chunks joined
// make one valid stream. The chunks do not depend on each other's output: the stream is the same
// whatever the number of threads and whichever thread compresses which chunk. The CRC-32 (as zip
// stores it) is computed beside.
//
// Nothing here throws: a failure (memory that cannot be had, the compressor failing) is returned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace wf {

struct Deflated {
  std::vector<unsigned char> data;  // the raw deflate stream
  uint32_t crc = 0;                 // CRC-32 of the input
  uint64_t size = 0;                // bytes of input
};

// The chunk size of the stream (a property of the output, independent of the threads).
constexpr size_t deflatechunk = size_t{1} << 22;

// The stream made chunk by chunk, for callers that share the threads with other work: each
// chunk is compressed once by compress(c), on any thread of a team of at most `threads`
// (compress uses the OpenMP thread number for its scratch); finish joins the pieces in order.
// The input must stay as it is until finish.
class ChunkDeflate {
 public:
  ChunkDeflate(const unsigned char *input, size_t n, int threads);
  ChunkDeflate(const ChunkDeflate &) = delete;
  ChunkDeflate &operator=(const ChunkDeflate &) = delete;
  ~ChunkDeflate();
  // False when the memory for the work could not be had (compress then does nothing).
  bool ready() const { return ready_; }
  size_t chunks() const { return pieces_.size(); }
  void compress(size_t c);
  // The stream, its CRC and size; false when a chunk failed or memory ran out.
  bool finish(Deflated &out);

 private:
  struct Scratch;
  const unsigned char *input_;
  size_t n_;
  bool ready_ = false;
  std::vector<char> failed_;  // one a chunk, written by the thread of that chunk
  std::vector<std::vector<unsigned char>> pieces_;
  std::vector<std::unique_ptr<Scratch>> scratch_;  // one a thread
};

// The whole stream on up to `threads` threads (<= 0: the OpenMP default).
bool deflateraw(const unsigned char *input, size_t n, Deflated &out, int threads = 0);

}  // namespace wf
