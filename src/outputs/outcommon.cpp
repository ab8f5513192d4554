// SPDX-License-Identifier: GPL-2.0-or-later
#include "outputs/outcommon.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "control/messages.h"

namespace wf {

void filldispsingle(RunState &rs, std::vector<float> &dispsingle, const char *label) {
  const size_t n = rs.mesh.nvrt > 0 ? 3 * static_cast<size_t>(rs.mesh.nvrt) : 0;
  allocate(dispsingle, n, label);
  const size_t nv = std::min(n, rs.mesh.vrt.size());
  const size_t np = std::min(nv, rs.mesh.prewarp.size());
  const double *v = rs.mesh.vrt.data();
  const double *p = rs.mesh.prewarp.data();
  float *d = dispsingle.data();
  for (size_t k = 0; k < np; ++k) d[k] = static_cast<float>(v[k] - p[k]);
  // Entries beyond a short start array stay 0 (not moved).
}

void writefailed(RunState &rs, const std::string &file, int err) {
  rs.rep.post(1, 200, {text256(file), std::to_string(err)});
  fatalsilent();
}

void closeoutput(RunState &rs, std::FILE *f, const std::string &file) {
  errno = 0;
  bool bad = std::ferror(f) != 0;
  if (std::fclose(f) != 0) bad = true;
  if (bad) writefailed(rs, file, errno != 0 ? errno : EIO);
}

BlockWriter::BlockWriter(RunState &rs, std::FILE *f, const std::string &file, size_t capacity)
    : rs_(rs), f_(f), file_(file) {
  allocate(buf_, capacity, "blockwriter, buffer, 1");
}

void BlockWriter::put(std::string_view text) {
  while (!text.empty()) {
    size_t room = buf_.size() - used_;
    if (room == 0) {
      flush();
      room = buf_.size();
    }
    size_t k = std::min(room, text.size());
    std::memcpy(buf_.data() + used_, text.data(), k);
    used_ += k;
    text.remove_prefix(k);
  }
}

void BlockWriter::flush() {
  if (used_ == 0) return;
  errno = 0;
  if (std::fwrite(buf_.data(), 1, used_, f_) != used_) writefailed(rs_, file_, errno ? errno : EIO);
  used_ = 0;
}

void BlockWriter::putblock(const void *data, size_t n) {
  flush();
  if (n == 0) return;
  errno = 0;
  if (std::fwrite(data, 1, n, f_) != n) writefailed(rs_, file_, errno ? errno : EIO);
}

char *putint(char *p, long long v) {
  return std::to_chars(p, p + 24, v).ptr;
}

}  // namespace wf
