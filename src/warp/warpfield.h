// SPDX-License-Identifier: GPL-3.0-or-later
// The displacement of one point. nodalwarp takes the inverse-distance-weighted average of the
// displacements of the nearest active mesh nodes, found by a ring search in the node grid, with
// the Z rules and, with a reference geometry, the pull onto it; warpvertex takes the scan path
// instead when a scanned geometry replaces the simulation.
//
// The ring search, exactly as the results depend on it: rings r = 0, 1, ... of cells round the
// point's home cell (a point outside the grid starts in the nearest boundary cell), nodes of a
// cell in their stored order, inactive nodes passed over. Before each ring the search ends when
// navg nodes are held and the largest held squared distance is not above r * h (h the smallest
// cell size: a squared distance against a plain length, kept deliberately), or when every node has
// been seen, or when the rings cover the grid; and, with navg nodes held, when no node of the
// next ring can be nearer than the largest held one (or the point is not finite), which ends
// with the answer the remaining rings would give. With navg nodes held, the cells of a ring
// outside the box of the ball of the largest held distance are passed over (none of their nodes
// would enter). The first node within the snap tolerance gives
// its displacement unweighted; otherwise the first navg nodes fill the positions and a nearer
// node replaces the first position holding the largest distance (a tie keeps the old node).
// Weights are 1 / d2^halfexponent; only filled positions count, no node at all means no move.
//
// Nothing here allocates or prints: each thread passes its own WarpWork, and the field is
// read-only, so the routines run unchanged on any thread.
#pragma once

#include <cstdint>
#include <vector>

#include "simresults/simulation.h"
#include "warp/closestpoint.h"
#include "warp/nodegrid.h"

namespace wf {

struct WarpParams {
  double warpscale = -1.0;    // factor on the displacement
  double snaptolsq = 1e-10;   // a node this close (squared) gives its displacement unweighted
  double halfexponent = 0.5;  // power of the squared distance in the weight
  int32_t navg = 10;          // nodes in the average
  bool fixz = false;          // no Z displacement within ztol of the build plane
  double ztol = 1e-5;
  bool norel = false;  // no Z displacement at all
  double buildplane = 0;
  bool refg = false;      // pull onto the reference geometry
  bool scng = false;      // the scan path instead of the nodes
  bool ringbound = true;  // false: no end to the rings before the stopping rule (the
                          // reference the bound is tested against)
};

// One node as the ring search reads it: coordinates and number in one record, two records to a
// cache line, so that a visited node costs one load. n is negated for a node that no element
// uses (the search passes it over).
struct RingNode {
  double xyz[3];
  int32_t n;
};
using RingNodes = std::vector<RingNode, LineAllocator<RingNode>>;

// What a point's displacement reads. sim and grid are needed on the nodal path, ref with refg,
// scn with scng.
struct WarpField {
  const Simulation *sim = nullptr;
  const NodeGrid *grid = nullptr;
  const QuerySet *ref = nullptr;
  const QuerySet *scn = nullptr;
  // The grid's nodes packed by packnodes, read by the ring search instead of the bucket list,
  // the flags and the coordinates (null: those are read; the answers are the same to the bit).
  const RingNode *ringnodes = nullptr;
  WarpParams params;
};

// The nodes of the grid in the order of its bucket list, with the simulation's coordinates and
// flags: entry k is the node at position k + 1 of cellnodes, so the cell ranges address both.
// Throws Fatal 32 ("warpstl, ringnodes, 1").
RingNodes packnodes(const Simulation &sim, const NodeGrid &grid);
// The field with its nodes packed into storage; the field itself when they are packed already
// or it takes the scan path.
WarpField withringnodes(const WarpField &field, RingNodes &storage);

// The work arrays of one thread, navg entries each.
struct WarpWork {
  std::vector<double> dist2;
  std::vector<int32_t> nodes;
  std::vector<double> weights;
  explicit WarpWork(int32_t navg)
      : dist2(static_cast<size_t>(navg > 0 ? navg : 1)),
        nodes(static_cast<size_t>(navg > 0 ? navg : 1)),
        weights(static_cast<size_t>(navg > 0 ? navg : 1)) {}
};

// Displaces point (3 doubles) in place.
void warpvertex(const WarpField &field, double *point, WarpWork &work);
void nodalwarp(const WarpField &field, double *point, WarpWork &work);

}  // namespace wf
