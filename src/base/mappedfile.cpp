// SPDX-License-Identifier: GPL-3.0-or-later
#include "base/mappedfile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace wf {

MappedFile::MappedFile(const std::string &file, int fd, size_t bytes) {
  struct stat opened {};
  if (fd < 0 || bytes == 0 || fstat(fd, &opened) != 0 || !S_ISREG(opened.st_mode) || opened.st_size != 0) return;
  const int rw = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
  if (rw < 0) return;
  struct stat again {};
  // fallocate, not posix_fallocate: where the file system cannot take blocks ahead, the latter
  // writes zeros block by block, which is the cost this saves.
  if (fstat(rw, &again) == 0 && again.st_dev == opened.st_dev && again.st_ino == opened.st_ino &&
      fallocate(rw, 0, 0, static_cast<off_t>(bytes)) == 0) {
    void *p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, rw, 0);
    if (p != MAP_FAILED) {
      p_ = static_cast<char *>(p);
      bytes_ = bytes;
    } else {
      // Empty again for the caller's write; should even that fail, the write overwrites it.
      [[maybe_unused]] const int ignored = ftruncate(rw, 0);
    }
  }
  ::close(rw);
}

MappedFile::~MappedFile() {
  if (p_ != nullptr) munmap(p_, bytes_);
}

}  // namespace wf
