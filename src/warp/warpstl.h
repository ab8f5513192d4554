// SPDX-License-Identifier: GPL-3.0-or-later
// The warp of one surface: every vertex moves by the field (in parallel), then the edges are
// refined. On return the vertices are final and in output units, prewarp holds them before the
// warp (with the STL scaling, in output units), and the triangles are the live ones in order.
#pragma once

#include <vector>

#include "base/reporter.h"
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

// The step, with its console lines. nodecheck (a job with a simulation file): navg above the
// node count ends the run (174), above a tenth of it warns. The build plane is set here, from
// `refminz` with a reference geometry, else from the lowest Z of the surface as read (unscaled).
void warpstl(Reporter &rep, const WarpField &field, bool nodecheck, double refminz, const WarpScales &scales,
             const RefineParams &refine, SurfaceMesh &mesh, EdgeTable &edges);

// Flush-to-zero and denormals-are-zero on the calling thread.
void setfpmode();
// One set of work arrays per thread of a parallel region, made on the calling thread. Throws
// Fatal 32 ("warpstl, work, 1").
std::vector<WarpWork> threadwork(const WarpField &field);

}  // namespace wf
