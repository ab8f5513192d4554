// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/outcommon.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "base/fatal.h"
#include "base/memory.h"
#include "base/text.h"

namespace wf {

namespace {

[[noreturn]] void writefailed(const std::string &file, int err) { fatal(200, {text256(file), std::to_string(err)}); }

}  // namespace

std::vector<float> dispsingle(const SurfaceMesh &mesh, const char *label) {
  const size_t n = mesh.nvrt > 0 ? 3 * static_cast<size_t>(mesh.nvrt) : 0;
  std::vector<float> d;
  allocate(d, n, label);
  const size_t np = std::min({n, mesh.vrt.size(), mesh.prewarp.size()});
  for (size_t k = 0; k < np; ++k) d[k] = static_cast<float>(mesh.vrt[k] - mesh.prewarp[k]);
  return d;
}

std::FILE *openoutput(const std::string &path, const std::string &report) {
  errno = 0;
  std::FILE *f = std::fopen(path.c_str(), "wb");
  if (!f) checkopen(errno ? errno : EIO, report);
  return f;
}

void closeoutput(std::FILE *f, const std::string &file) {
  errno = 0;
  bool bad = std::ferror(f) != 0;
  if (std::fclose(f) != 0) bad = true;
  if (bad) writefailed(file, errno != 0 ? errno : EIO);
}

BlockWriter::BlockWriter(std::FILE *f, const std::string &file, size_t capacity) : f_(f), file_(file) {
  allocate(buf_, capacity, "blockwriter, buffer, 1");
}

void BlockWriter::put(std::string_view text) {
  while (!text.empty()) {
    size_t room = buf_.size() - used_;
    if (room == 0) {
      flush();
      room = buf_.size();
    }
    const size_t k = std::min(room, text.size());
    std::memcpy(buf_.data() + used_, text.data(), k);
    used_ += k;
    text.remove_prefix(k);
  }
}

void BlockWriter::flush() {
  if (used_ == 0) return;
  errno = 0;
  if (std::fwrite(buf_.data(), 1, used_, f_) != used_) writefailed(file_, errno ? errno : EIO);
  used_ = 0;
}

void BlockWriter::putblock(const void *data, size_t n) {
  flush();
  if (n == 0) return;
  errno = 0;
  if (std::fwrite(data, 1, n, f_) != n) writefailed(file_, errno ? errno : EIO);
}

char *putint(char *p, long long v) { return std::to_chars(p, p + 24, v).ptr; }

}  // namespace wf
