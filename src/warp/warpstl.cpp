// SPDX-License-Identifier: GPL-3.0-or-later
#include "warp/warpstl.h"

#include <omp.h>
#include <xmmintrin.h>

#include <algorithm>
#include <new>

#include <vector>

#include "base/fatal.h"
#include "base/memory.h"

namespace wf {

void setfpmode() { _mm_setcsr(_mm_getcsr() | 0x8040); }

std::vector<WarpWork> threadwork(const WarpField &field) {
  // The scan path needs no node arrays. The arrays are made here, on the calling thread, so that
  // a failed allocation is reported like any other and never meets a parallel region.
  const int32_t navg = field.params.scng ? 1 : field.params.navg;
  try {
    return std::vector<WarpWork>(static_cast<size_t>(std::max(omp_get_max_threads(), 1)), WarpWork(navg));
  } catch (const std::bad_alloc &) {
    checkalloc(1, "warpstl, work, 1");
  }
  return {};
}

void warpvertices(const WarpField &unpacked, SurfaceMesh &mesh) {
  RingNodes ring;
  const WarpField field = withringnodes(unpacked, ring);
  std::vector<WarpWork> works = threadwork(field);
  const int32_t nvrt = mesh.nvrt;
  double *vrt = mesh.vrt.data();
#pragma omp parallel default(none) shared(field, vrt, works) firstprivate(nvrt)
  {
    setfpmode();
    WarpWork &work = works[static_cast<size_t>(omp_get_thread_num())];
#pragma omp for schedule(dynamic, 16)
    for (int32_t i = 0; i < nvrt; ++i) warpvertex(field, vrt + 3 * static_cast<size_t>(i), work);
  }
}

RefineCounts warpstl(const WarpField &given, bool nodecheck, double refminz, const WarpScales &scales,
                     const RefineParams &refine, SurfaceMesh &mesh, EdgeTable &edges, const WarpStageFn &onstage,
                     const ProgressFn &progress) {
  auto tell = [&](WarpStage stage) {
    if (onstage) onstage(stage);
  };
  // The refinement does not keep the triangle-to-edge table.
  release(edges.triedge);

  if (nodecheck) {
    const int32_t nnodes = given.sim ? given.sim->nnodes : 0;
    if (given.params.navg > nnodes) fatal(174);
    const float limit = 0.1f * static_cast<float>(nnodes);
    if (static_cast<float>(given.params.navg) > limit) tell(WarpStage::manynodes);
  }

  tell(WarpStage::displace);

  // STL scaling of the vertices and of the initial edge lengths.
  const size_t nv = 3 * static_cast<size_t>(mesh.nvrt);
  for (size_t k = 0; k < nv; ++k) mesh.vrt[k] *= scales.stlscale;
  // Kept deliberately: an initial edge keeps its length before the warp (times the STL scale),
  // while an edge made by a split gets its length between warped ends (warp/refine.cpp,
  // pushedge); the walk's order and its minedge test read these lengths.
  // [pinned: regression set, every job that refines (plain, refine_limits, multi_sstl_outp, ...)]
  for (size_t k = 0; k < static_cast<size_t>(edges.n); ++k) edges.len[k] *= scales.stlscale;
  // The scaled vertices before warping.
  mesh.prewarp.assign(mesh.vrt.begin(), mesh.vrt.begin() + static_cast<std::ptrdiff_t>(nv));

  // Kept deliberately: the build plane stays in raw surface units (not times the STL scale),
  // though the vertices it is compared with are scaled. [pinned: WarpStl.StlScaleLeavesTheBuildPlaneAndPrewarpAsRead]
  WarpField field = given;
  field.params.buildplane = field.params.refg ? refminz : mesh.box.min[2];

  warpvertices(field, mesh);

  tell(WarpStage::refine);
  const RefineCounts counts = refinesurface(field, refine, mesh, edges, progress);

  // Back to file units, then to output units.
  // Kept deliberately: prewarp keeps the STL scaling (it is not divided by it), so with a scale
  // other than 1 the displacements of the text report, the VTK file and the package hold that
  // difference. [pinned: regression job multi_sstl_outp (first.stl_wrtu.txt, *STLS 1.25);
  // WarpStl.StlScaleLeavesTheBuildPlaneAndPrewarpAsRead]
  const size_t n = 3 * static_cast<size_t>(mesh.nvrt);
  for (size_t k = 0; k < n; ++k) mesh.vrt[k] = mesh.vrt[k] / scales.stlscale;
  for (size_t k = 0; k < n; ++k) mesh.vrt[k] = mesh.vrt[k] * scales.unitscale;
  for (size_t k = 0; k < n; ++k) mesh.prewarp[k] = mesh.prewarp[k] * scales.unitscale;
  return counts;
}

}  // namespace wf
