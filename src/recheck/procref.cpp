// SPDX-License-Identifier: GPL-2.0-or-later
// Reference and scanned geometries: read once as raw triangles, given their query terms by the
// normals step, and taken over into a query set that the warp reads for the rest of the run.
// The surface arrays are left released for the surface loop.
#include "recheck/procref.h"

#include <algorithm>

#include "control/messages.h"
#include "surface/normals.h"
#include "surface/readstl.h"

namespace wf {

namespace {

// Allocates target with the size of source under label, copies it whole, releases source.
void takeover(RunState &rs, std::vector<double> &target, std::vector<double> &source,
              const char *label) {
  allocate(target, source.size(), label);
  std::copy(source.begin(), source.end(), target.begin());
  release(source);
}

void buildset(RunState &rs, TriData &set, const List<std::string> &files, const char *title,
              const char *ulabel, const char *alabel, const char *nlabel) {
  rs.rep.say(title);
  rs.stlpath = files.n > 0 ? rtrim(files[0]) : std::string();
  readstlraw(rs, false);
  normals(rs, false, true, false);

  set.nvrt = rs.nvrt;
  set.ntri = rs.ntri;
  for (int a = 0; a < 3; ++a) {
    set.bbox[a] = rs.stlbbox.min[a];
    set.bbox[3 + a] = rs.stlbbox.max[a];
  }

  // The corners: 3 x nvrt, three columns per triangle in file order.
  set.corners.resize(rs.stlvrt.size());
  std::copy(rs.stlvrt.begin(), rs.stlvrt.end(), set.corners.begin());
  release(rs.stlvrt);

  // The edge vectors form one allocation, the five products one and the normals one.
  takeover(rs, set.e0, rs.ugtri, ulabel);
  takeover(rs, set.e1, rs.vgtri, ulabel);
  takeover(rs, set.a, rs.uugtri, alabel);
  takeover(rs, set.b, rs.uvgtri, alabel);
  takeover(rs, set.c, rs.vvgtri, alabel);
  takeover(rs, set.det, rs.detgtri, alabel);
  takeover(rs, set.den, rs.dengtri, alabel);
  takeover(rs, set.normal, rs.nrgtri, nlabel);
  takeover(rs, set.nnsq, rs.nnsqgtri, nlabel);
  rs.fullnormals = false;
  rs.nvrt = 0;
  rs.ntri = 0;
}

}  // namespace

void procref(RunState &rs) {
  if (!rs.refgflag) return;
  buildset(rs, rs.ref, rs.reffiles, "Processing reference geometry", "procref, uref, 1",
           "procref, aref, 1", "procref, nrref, 1");
  rs.refminz = rs.ref.bbox[2];
}

void procscn(RunState &rs) {
  if (!rs.scngflag) return;
  buildset(rs, rs.scn, rs.scnfiles, "Processing scanned geometry", "procscn, uscn, 1",
           "procscn, ascn, 1", "procscn, nrscn, 1");
}

}  // namespace wf
