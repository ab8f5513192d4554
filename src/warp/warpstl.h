// SPDX-License-Identifier: GPL-3.0-or-later
// The warp of one surface: every vertex moves by the field (in parallel), then the edges are
// refined. On return the vertices are final and in output units, prewarp holds them before the
// warp (with the STL scaling, in output units), and the triangles are the live ones in order.
// Nothing here prints: warpstl tells a caller that reports the warp of each stage as it comes
// (app/steps.h).
#pragma once

#include <functional>
#include <vector>

#include "surface/surfacemesh.h"
#include "warp/refine.h"
#include "warp/warpfield.h"

namespace wf {

struct WarpScales {
  double stlscale = 1.0;   // of the solver input file; applied to vertices and first lengths
  double unitscale = 1.0;  // applied to the output at the end
};

// Moves every vertex of mesh.vrt in place: an OpenMP loop over the vertices in chunks of 16 (a
// chunk of one costs a transfer of the shared counter per vertex), each thread with its own work
// arrays and the floating-point mode of the main thread (flush-to-zero, denormals-are-zero).
// Every vertex is independent, so the result does not depend on the number of threads. The
// ring searches read the grid's nodes packed (packnodes), made here unless the field has them.
void warpvertices(const WarpField &field, SurfaceMesh &mesh);

// The moments of the warp, in this order: navg above a tenth of the node count (manynodes, told
// only with nodecheck), the vertices about to move (displace), the refinement about to start
// (refine); the refinement's progress follows through its own function.
enum class WarpStage { manynodes, displace, refine };
using WarpStageFn = std::function<void(WarpStage stage)>;

// The warp of one surface; returns the counts of the refinement. nodecheck (a job with a
// simulation file): navg above the node count ends the run (174), above a tenth of it is told
// (manynodes). The build plane is set here, from `refminz` with a reference geometry, else from
// the lowest Z of the surface as read (unscaled). onstage and progress, when given, are told
// the stages and the refinement's progress. Throws Fatal: 174, 32.
RefineCounts warpstl(const WarpField &field, bool nodecheck, double refminz, const WarpScales &scales,
                     const RefineParams &refine, SurfaceMesh &mesh, EdgeTable &edges, const WarpStageFn &onstage = {},
                     const ProgressFn &progress = {});

// Flush-to-zero and denormals-are-zero on the calling thread.
void setfpmode();
// One set of work arrays per thread of a parallel region, made on the calling thread. Throws
// Fatal 32 ("warpstl, work, 1").
std::vector<WarpWork> threadwork(const WarpField &field);

}  // namespace wf
