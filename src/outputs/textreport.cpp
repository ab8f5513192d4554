// SPDX-License-Identifier: GPL-2.0-or-later
#include "outputs/textreport.h"

#include <cerrno>
#include <cstdio>

#include "control/messages.h"
#include "base/textio.h"
#include "outputs/outcommon.h"

namespace wf {

void writetextreport(RunState &rs) {
  if (!rs.settings.wrtuflag) return;
  const std::string path = rtrim(rs.wrtupath);
  errno = 0;
  std::FILE *f = std::fopen(path.c_str(), "wb");
  checkopen(f ? 0 : (errno ? errno : EIO), path);

  // One line of six fields of 14 characters per vertex, gathered in blocks.
  constexpr size_t linelen = 6 * 14 + 1;
  BlockWriter out(rs, f, path);
  const size_t n = rs.mesh.nvrt > 0 ? static_cast<size_t>(rs.mesh.nvrt) : 0;
  const size_t nv = rs.mesh.vrt.size() / 3, np = rs.mesh.prewarp.size() / 3;
  for (size_t i = 0; i < n; ++i) {
    double pre[3] = {0, 0, 0}, now[3] = {0, 0, 0};
    for (int k = 0; k < 3; ++k) {
      if (i < np) pre[k] = rs.mesh.prewarp[3 * i + k];
      if (i < nv) now[k] = rs.mesh.vrt[3 * i + k];
      else now[k] = pre[k];
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
  closeoutput(rs, f, path);
  rs.rep.say("Finished writing file " + path);
}

}  // namespace wf
