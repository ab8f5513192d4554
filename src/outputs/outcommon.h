// SPDX-License-Identifier: GPL-3.0-or-later
// Pieces shared by the output writers: the block writer that gathers formatted text in one
// buffer and hands it to the file a block at a time, the single-precision displacement of the
// surface, and the check of a finished write (message 200 naming the file and the system error).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "surface/surfacemesh.h"

namespace wf {

// dispsingle(k, i) = vrt(k, i) - prewarp(k, i), subtracted in double, rounded to single; 3 x nvrt.
// A vertex without a stored start position counts as not moved. Throws Fatal 32 with the label.
std::vector<float> dispsingle(const SurfaceMesh &mesh, const char *label);

// Opens a file for writing, replacing an earlier one; a failure is message 31 naming `report`.
std::FILE *openoutput(const std::string &path, const std::string &report);
// Closes f; a failed close (the last block could not be flushed) is message 200.
void closeoutput(std::FILE *f, const std::string &file);

// Formatted output gathered in a buffer of `capacity` bytes and written with one fwrite per
// full buffer; a failed write is message 200. reserve(n) guarantees room for n bytes
// (n <= capacity) and returns the write position; advance(end) takes the bytes up to end.
class BlockWriter {
 public:
  BlockWriter(std::FILE *f, const std::string &file, size_t capacity = 1 << 22);
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
// An integer in minimal width.
char *putint(char *p, long long v);

}  // namespace wf
