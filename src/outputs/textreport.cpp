// SPDX-License-Identifier: GPL-3.0-or-later
#include "outputs/textreport.h"

#include "base/textio.h"
#include "outputs/outcommon.h"

namespace wf {

void writetextreport(const SurfaceMesh &mesh, const std::string &path, const Folder &in) {
  std::FILE *f = openoutput(in.at(path), path);
  // One line of six fields of 14 characters per vertex, gathered in blocks.
  constexpr size_t linelen = 6 * 14 + 1;
  {
    BlockWriter out(f, path);
    const size_t n = mesh.nvrt > 0 ? static_cast<size_t>(mesh.nvrt) : 0;
    const size_t nv = mesh.vrt.size() / 3, np = mesh.prewarp.size() / 3;
    for (size_t i = 0; i < n; ++i) {
      double pre[3] = {0, 0, 0}, now[3] = {0, 0, 0};
      for (int k = 0; k < 3; ++k) {
        if (i < np) pre[k] = mesh.prewarp[3 * i + k];
        now[k] = i < nv ? mesh.vrt[3 * i + k] : pre[k];
      }
      char *p = out.reserve(linelen);
      p = scifield(p, pre[0], 14, 6);
      p = scifield(p, pre[1], 14, 6);
      p = scifield(p, pre[2], 14, 6);
      p = scifield(p, now[0] - pre[0], 14, 6);
      p = scifield(p, now[1] - pre[1], 14, 6);
      p = scifield(p, now[2] - pre[2], 14, 6);
      *p++ = '\n';
      out.advance(p);
    }
    out.flush();
  }
  closeoutput(f, path);
}

}  // namespace wf
