// SPDX-License-Identifier: GPL-2.0-or-later
// Post-warp check. freesurface empties the arrays of a pass; recheckstep reads the written
// surface back through the combined reader, checks it like an input surface and sends a surface
// that fails to repair, whose file then takes the place of the output.
//
// The step works on a one-entry surface list of its own: the job's stlfiles, stltype and
// surfwatertight (and curstlid, which numbers the surface in the check) are put back after it,
// so that the next pass of a job with several surfaces still finds its surface.
#include "recheck/recheck.h"

#include <utility>

#include "control/messages.h"
#include "recheck/readcombined.h"
#include "repair/repairclient.h"
#include "surface/normals.h"
#include "surface/surfacemesh.h"

namespace wf {

namespace {

constexpr size_t PATHFIELD = 8192;

void releaseedges(RunState &rs) {
  release(rs.edgevrt);
  release(rs.edgetri);
  release(rs.edgeopp);
  release(rs.edgenbr);
  release(rs.edgelen);
  release(rs.edgesurf);
  release(rs.triedge);
  rs.nedge = 0;
  rs.edgecap = 0;
}

// The job's surface list, kept aside while the step works on its own.
struct SurfaceList {
  List<std::string> stlfiles;
  List<int32_t> stltype;
  std::vector<int32_t> surfwatertight;
  int32_t curstlid = 1;
};

}  // namespace

void freesurface(RunState &rs) {
  release(rs.rawvrt);
  rs.nrawvrt = 0;
  release(rs.stlvrt);
  rs.nvrt = 0;
  release(rs.stltri);
  rs.ntri = 0;
  release(rs.triedgesq);
  release(rs.prewarpvertices);
  releaseedges(rs);
  release(rs.triactive);
  release(rs.edgelevel);
  rs.vrtcap = 0;
  rs.tricap = 0;
  releasenormals(rs);
}

void freecombined(RunState &rs) {
  release(rs.partvrtstart);
  release(rs.parttristart);
  release(rs.partbox);
  releaseedges(rs);
  release(rs.triedgesq);
  release(rs.stltri);
  release(rs.stlvrt);
  rs.nvrt = 0;
  releasenormals(rs);
}

void recheck(RunState &rs, bool tolerate, bool checkorient) {
  readcombined(rs, true);
  int status = 0;
  bool oriented = true;
  preparesurface(rs, status, false, false, oriented);
  if (status == 0) {
    // Clean: the normals are computed as for any checked surface; nothing reads them further.
    normals(rs, false, false, true);
    return;
  }
  // preparesurface has printed the warning on the non-manifold edges.
  freecombined(rs);
  repairsurfaces(rs, tolerate, checkorient);
}

void recheckstep(RunState &rs) {
  if (!rs.tsrdflag) return;

  SurfaceList saved;
  saved.stlfiles = std::move(rs.stlfiles);
  saved.stltype = std::move(rs.stltype);
  saved.surfwatertight = std::move(rs.surfwatertight);
  saved.curstlid = rs.curstlid;
  rs.stlfiles = List<std::string>();
  rs.stltype = List<int32_t>();
  rs.surfwatertight = std::vector<int32_t>();

  try {
    allocate(rs.stlfiles.v, 1, "recheckstep, stlfiles, 1");
    rs.stlfiles.n = 1;
    rs.stlfiles[0] = rtrim(rs.outstlpath);
    allocate(rs.surfwatertight, 1, "recheckstep, surfwatertight, 1");
    rs.surfwatertight[0] = 0;
    allocate(rs.stltype.v, 1, "recheckstep, stltype, 1");
    rs.stltype.n = 1;
    rs.stltype[0] = 1;
    rs.curstlid = 1;

    recheck(rs, true, false);

    std::string entry = rs.stlfiles[0];
    entry.resize(PATHFIELD, ' ');
    rs.outstlpath = std::move(entry);
  } catch (...) {
    // A fatal message on the way: leave the job's list as it was before passing it on.
    rs.stlfiles = std::move(saved.stlfiles);
    rs.stltype = std::move(saved.stltype);
    rs.surfwatertight = std::move(saved.surfwatertight);
    rs.curstlid = saved.curstlid;
    throw;
  }
  rs.stlfiles = std::move(saved.stlfiles);
  rs.stltype = std::move(saved.stltype);
  rs.surfwatertight = std::move(saved.surfwatertight);
  rs.curstlid = saved.curstlid;
}

}  // namespace wf
