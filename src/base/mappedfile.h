// SPDX-License-Identifier: GPL-3.0-or-later
// An output file written in place through its own pages: a large text or record block is
// formatted straight into the file, so it is neither held in memory beside the file nor copied
// by a write (the copy and the fresh pages under it cost more than the formatting).
//
// MappedFile(file, fd, bytes) takes `bytes` bytes of disk for the file first, then maps them.
// The file must be empty and be the one open as fd (it is opened once more, for reading and
// writing, which a mapping needs; a stream opened for writing only is enough for the caller).
// Taking the blocks first means no page of the mapping can lack room on the disk, where a write
// to it would end the process without a word. When any of this cannot be had (a full disk, a
// device, pipe or file system that cannot take blocks ahead, a file not empty, no address
// space), mapped() is false, the file is left empty as it was, and the caller writes as it would
// have; the bytes on disk are the same either way. The mapped pages start as zeros. The file
// keeps its size of `bytes` and its contents when the mapping goes; nothing here throws or
// prints.
#pragma once

#include <cstddef>
#include <string>

namespace wf {

class MappedFile {
 public:
  MappedFile(const std::string &file, int fd, size_t bytes);
  MappedFile(const MappedFile &) = delete;
  MappedFile &operator=(const MappedFile &) = delete;
  ~MappedFile();
  bool mapped() const { return p_ != nullptr; }
  char *data() const { return p_; }
  size_t size() const { return bytes_; }

 private:
  char *p_ = nullptr;
  size_t bytes_ = 0;
};

}  // namespace wf
