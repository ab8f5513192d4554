// SPDX-License-Identifier: GPL-2.0-or-later
// Reference and scanned geometries: read once as raw triangles, given their query terms, and
// kept as a query set that the warp reads for the rest of the run.
#include "recheck/procref.h"

#include "base/text.h"
#include "surface/normals.h"
#include "surface/readstl.h"

namespace wf {

namespace {

void buildset(RunState &rs, QuerySet &set, const List<std::string> &files, const char *title) {
  rs.rep.say(title);
  rs.stlpath = files.n > 0 ? rtrim(files[0]) : std::string();
  RawSurface raw = readstl(rs.rep, rs.stlpath, rs.stlbyteorder, false);
  rs.rep.say("Calculating surface normals");
  TriangleTerms terms;
  triangleterms(raw.vrt.data(), static_cast<size_t>(raw.nvrt), nullptr, raw.ntri, terms);

  set.nvrt = raw.nvrt;
  set.ntri = raw.ntri;
  for (int a = 0; a < 3; ++a) {
    set.bbox[a] = raw.box.min[a];
    set.bbox[3 + a] = raw.box.max[a];
  }
  set.corners = std::move(raw.vrt);
  set.e0 = std::move(terms.u);
  set.e1 = std::move(terms.v);
  set.a = std::move(terms.uu);
  set.b = std::move(terms.uv);
  set.c = std::move(terms.vv);
  set.det = std::move(terms.det);
  set.den = std::move(terms.den);
  set.normal = std::move(terms.n);
  set.nnsq = std::move(terms.nn);
}

}  // namespace

void procref(RunState &rs) {
  if (!rs.settings.refgflag) return;
  buildset(rs, rs.ref, rs.settings.reffiles, "Processing reference geometry");
  rs.refminz = rs.ref.bbox[2];
}

void procscn(RunState &rs) {
  if (!rs.settings.scngflag) return;
  buildset(rs, rs.scn, rs.settings.scnfiles, "Processing scanned geometry");
}

}  // namespace wf
