// SPDX-License-Identifier: GPL-2.0-or-later
// The warp of one surface: the node-count check, the STL scaling, the copy of the unwarped
// vertices, the build plane, the parallel vertex loop; then the refinement walk.
#include "warp/warpstl.h"

#include <xmmintrin.h>

#include <vector>

#include "control/messages.h"
#include "warp/refine.h"
#include "warp/vertexloop.h"

namespace wf {

// Moves every vertex; one thread per chunk of one vertex, each thread with its own work arrays
// made once, and each running with flush-to-zero and denormals-are-zero like the main thread.
void warpvertices(RunState &rs) {
  // A simulation job without its mesh arrays (never so from the driver) moves nothing.
  if (!rs.settings.scngflag && (rs.sim.nodeactive.size() < static_cast<size_t>(rs.sim.nnodes) ||
                       rs.sim.nodedisp.size() < 3 * static_cast<size_t>(rs.sim.nnodes))) {
    rs.sim.nodeactive.resize(static_cast<size_t>(rs.sim.nnodes), 0);
    rs.sim.nodedisp.resize(3 * static_cast<size_t>(rs.sim.nnodes), 0.0);
  }
  const RunState &crs = rs;
  const int navg = rs.settings.navgnodes > 0 ? rs.settings.navgnodes : 1;
  const int32_t nvrt = rs.mesh.nvrt;
  double *vrt = rs.mesh.vrt.data();
#pragma omp parallel default(none) shared(crs, vrt) firstprivate(navg, nvrt)
  {
    _mm_setcsr(_mm_getcsr() | 0x8040);
    std::vector<double> dist2(static_cast<size_t>(navg));
    std::vector<int32_t> nodes(static_cast<size_t>(navg));
    std::vector<double> weights(static_cast<size_t>(navg));
#pragma omp for schedule(dynamic, 1)
    for (int32_t i = 0; i < nvrt; ++i)
      warpvertex(crs, vrt + 3 * static_cast<size_t>(i), dist2.data(), nodes.data(),
                 weights.data(), navg);
  }
}

void beginwarp(RunState &rs) {
  // The refinement does not keep the triangle-to-edge table.
  release(rs.edges.triedge);

  // Node-count check (simulation jobs only).
  if (rs.settings.inpuflag) {
    if (rs.settings.navgnodes > rs.sim.nnodes) {
      rs.rep.post(1, 174);
      fatalsilent();
    }
    const float limit = 0.1f * static_cast<float>(rs.sim.nnodes);
    if (static_cast<float>(rs.settings.navgnodes) > limit) {
      rs.rep.blank();
      rs.rep.say("WARNING:  number of nodes for weighted averaging is");
      rs.rep.say("          greater than 10% of the total number of");
      rs.rep.say("          nodes");
      rs.rep.blank();
    }
  }

  rs.rep.say("Displacing original STL vertices ...");

  // STL scaling of the vertices and of the initial edge lengths.
  const size_t nv = 3 * static_cast<size_t>(rs.mesh.nvrt);
  if (rs.mesh.vrt.size() < nv) rs.mesh.vrt.resize(nv);
  for (size_t k = 0; k < nv; ++k) rs.mesh.vrt[k] *= rs.files.stlscale;
  const size_t ne = static_cast<size_t>(rs.edges.n);
  if (rs.edges.len.size() < ne) rs.edges.len.resize(ne);
  for (size_t k = 0; k < ne; ++k) rs.edges.len[k] *= rs.files.stlscale;

  // The scaled vertices before warping.
  rs.mesh.prewarp.assign(rs.mesh.vrt.begin(), rs.mesh.vrt.begin() + static_cast<std::ptrdiff_t>(nv));

  // The build plane stays in raw surface units.
  rs.buildplane = rs.settings.refgflag ? rs.refminz : rs.mesh.box.min[2];
}

void warpstl(RunState &rs) {
  beginwarp(rs);

  // The main thread's work arrays (the refinement uses them for the midpoints); each thread of
  // the vertex loop makes its own.
  const int navg = rs.settings.navgnodes > 0 ? rs.settings.navgnodes : 1;
  std::vector<double> dist2(static_cast<size_t>(navg));
  std::vector<int32_t> nodes(static_cast<size_t>(navg));
  std::vector<double> weights(static_cast<size_t>(navg));

  warpvertices(rs);

  refinesurface(rs, dist2.data(), nodes.data(), weights.data(), navg);
}

}  // namespace wf
