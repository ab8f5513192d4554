// SPDX-License-Identifier: GPL-2.0-or-later
// Pieces shared by the output writers: the block writer that gathers formatted text in one
// buffer and hands it to the file a block at a time, the single-precision displacement of the
// surface, the last-dot rule of the output names, and the check of a finished write.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "control/runstate.h"

namespace wf {


// dispsingle(k, i) = stlvrt(k, i) - prewarpvertices(k, i), subtracted in double, rounded to
// single. A vertex without a stored start position counts as not moved. The array is sized
// 3 x nvrt through the checked allocator under the label given.
void filldispsingle(RunState &rs, std::vector<float> &dispsingle, const char *label);

// Write failures of the outputs end the run with message 200 (file name, errno as text).
[[noreturn]] void writefailed(RunState &rs, const std::string &file, int err);
// Closes f; a failed close (the last block could not be flushed) goes to writefailed.
void closeoutput(RunState &rs, std::FILE *f, const std::string &file);

// Formatted output gathered in a buffer of `capacity` bytes and written with one fwrite per
// full buffer. reserve(n) guarantees room for n bytes (n <= capacity) and returns the write
// position; advance(end) takes the bytes up to end.
class BlockWriter {
 public:
  BlockWriter(RunState &rs, std::FILE *f, const std::string &file, size_t capacity = 1 << 22);
  BlockWriter(const BlockWriter &) = delete;
  BlockWriter &operator=(const BlockWriter &) = delete;
  char *reserve(size_t n) {
    if (buf_.size() - used_ < n) flush();
    return buf_.data() + used_;
  }
  void advance(char *end) { used_ = static_cast<size_t>(end - buf_.data()); }
  void put(std::string_view text);
  void flush();
  // Writes a block of bytes directly (after what is buffered).
  void putblock(const void *data, size_t n);

 private:
  RunState &rs_;
  std::FILE *f_;
  std::string file_;
  std::vector<char> buf_;
  size_t used_ = 0;
};

// Appends text at p and returns the position behind it.
inline char *putlit(char *p, std::string_view text) {
  for (char c : text) *p++ = c;
  return p;
}
// A 32-bit integer in minimal width.
char *putint(char *p, long long v);

}  // namespace wf
