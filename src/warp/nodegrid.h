// SPDX-License-Identifier: GPL-3.0-or-later
// Node grid: every mesh node, used by an element or not, filed into a uniform grid of about one
// node per cell, as a compressed bucket list: cellnodes holds the node numbers cell by cell
// (cell i fastest, then j, then k), ascending within a cell; cellrange holds the first and last
// position (1-based) of each cell in cellnodes, last < first for an empty cell.
//
// Cell counts aim at nnodes near-cubic cells: nx = trunc(cbrt(N Lx Lx / (Ly Lz))) and alike, a
// count that does not come out a positive integer (a flat box divides by zero) becoming 1. A box
// nearly flat in one direction can ask for far more cells than nodes: where the cells would
// outnumber the nodes 64 times over (and 16 M), the memory is out of proportion to the mesh and
// the grid is refused with its allocation message instead of tried.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "simresults/simulation.h"

namespace wf {

struct NodeGrid {
  double origin[3] = {0, 0, 0};  // low corner of the node box
  double cellsize[3] = {0, 0, 0};
  int32_t nx = 1, ny = 1, nz = 1;  // cells along x, y, z, each at least 1
  std::vector<int32_t> cellnodes;  // nnodes node numbers (1-based)
  std::vector<int32_t> cellrange;  // 2 x nx x ny x nz
};

// Cell (1..n) of coordinate c on an axis of origin o, cell size s and count n: floor of the
// offset in cells, plus 1, clamped to 1..n. With a zero size the offset is 0/0 (cell 1) or
// +-infinity (cell n or 1); a coordinate that is not a number gives cell 1.
inline int32_t gridcell(double c, double o, double s, int32_t n) {
  // A negative or undefined offset (a zero cell size) is cell 1, and anything at or beyond the
  // last cell is the last cell, so the high face belongs to it.
  const double q = std::floor((c - o) / s);
  if (!(q >= 0.0)) return 1;
  if (q >= static_cast<double>(n)) return n;
  return static_cast<int32_t>(q) + 1;
}

// The grid's box, counts and cell sizes for nnodes nodes (3 x nnodes coordinates).
NodeGrid gridlayout(const double *xyz, int32_t nnodes);
// Files the nodes into a grid of that layout. Throws Fatal 32 ("initgrid, nncell, 1" also for
// a grid out of proportion, "initgrid, nbox, 1", "initgrid, jcellnodes, 1",
// "initgrid, j0cellnodes, 1").
void filenodes(NodeGrid &grid, const double *xyz, int32_t nnodes);
// The most cells a grid of nnodes nodes may have.
int64_t maxgridcells(int32_t nnodes);

}  // namespace wf
