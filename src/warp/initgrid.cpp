// SPDX-License-Identifier: GPL-2.0-or-later
// Node grid: every mesh node, used or not, is filed into a uniform grid of about one node per
// cell. The grid is a compressed bucket list: jcellnodes holds the node numbers cell by cell
// (i fastest, then j, then k), j0cellnodes the first and last position of each cell.
#include "warp/initgrid.h"

#include <cmath>
#include <limits>

#include "control/messages.h"

namespace wf {

namespace {

// A cell count from its cube-root estimate. What does not convert to a positive integer (zero,
// negative, not a number, infinite or beyond the integer range, as a degenerate box gives
// through its division by zero) becomes 1.
int32_t cellcount(double estimate) {
  double t = std::trunc(estimate);
  if (!(t >= 1.0) || t >= 2147483648.0) return 1;
  return static_cast<int32_t>(t);
}

// Cube root rounded correctly in practice: the library's value polished by one Newton step in
// extended precision, so that a perfect cube gives its integer root exactly (the library alone
// can land one unit below, and the count would then truncate to one cell less).
double cuberoot(double x) {
  if (!(x > 0.0) || !std::isfinite(x)) return std::cbrt(x);
  long double r = std::cbrt(x);
  const long double lx = x;
  r = r - (r * r * r - lx) / (3.0L * r * r);
  return static_cast<double>(r);
}

}  // namespace

int32_t gridcell(double c, double o, double s, int32_t n) {
  // floor of the offset in cells; a negative or undefined value (a zero cell size) is cell 1,
  // and anything at or beyond the last cell is the last cell, so the high face belongs to it.
  double q = std::floor((c - o) / s);
  if (!(q >= 0.0)) return 1;
  if (q >= static_cast<double>(n)) return n;
  return static_cast<int32_t>(q) + 1;
}

void initgrid(RunState &rs) {
  const int32_t nn = rs.sim.nnodes;
  const double *xyz = rs.sim.nodexyz.data();

  // 1. Bounding box of all nodes.
  double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
  if (nn > 0) {
    for (int a = 0; a < 3; ++a) lo[a] = hi[a] = xyz[a];
    for (int32_t n = 1; n < nn; ++n) {
      const double *p = xyz + 3 * static_cast<size_t>(n);
      for (int a = 0; a < 3; ++a) {
        if (p[a] > hi[a]) hi[a] = p[a];
        if (p[a] < lo[a]) lo[a] = p[a];
      }
    }
  }
  const double lx = hi[0] - lo[0], ly = hi[1] - lo[1], lz = hi[2] - lo[2];
  for (int a = 0; a < 3; ++a) rs.gridorigin[a] = lo[a];

  // 2. Cell counts aiming at nnodes near-cubic cells; products in this order of multiplication.
  const double dn = static_cast<double>(nn);
  rs.gridnx = cellcount(cuberoot(dn * lx * lx / (ly * lz)));
  rs.gridny = cellcount(cuberoot(dn * ly * ly / (lx * lz)));
  rs.gridnz = cellcount(cuberoot(dn * lz * lz / (lx * ly)));

  // 3. The partition line.
  rs.rep.say(" Number of nodal partitions = " + inttext(rs.gridnx) + " x " + inttext(rs.gridny) +
              " x " + inttext(rs.gridnz));
  rs.rep.blank();

  const size_t nx = static_cast<size_t>(rs.gridnx), ny = static_cast<size_t>(rs.gridny),
               nz = static_cast<size_t>(rs.gridnz);
  const size_t ncells = nx * ny * nz;

  // 4. Nodes per cell.
  std::vector<int32_t> nncell;
  allocate(nncell, ncells, "initgrid, nncell, 1");

  // 5. Cell sizes.
  rs.gridcellsize[0] = lx / rs.gridnx;
  rs.gridcellsize[1] = ly / rs.gridny;
  rs.gridcellsize[2] = lz / rs.gridnz;

  // 6. Cell of each node, kept as its linear cell number.
  std::vector<int32_t> nbox;
  allocate(nbox, 3 * static_cast<size_t>(nn), "initgrid, nbox, 1");
  for (int32_t n = 0; n < nn; ++n) {
    const double *p = xyz + 3 * static_cast<size_t>(n);
    int32_t *b = nbox.data() + 3 * static_cast<size_t>(n);
    b[0] = gridcell(p[0], rs.gridorigin[0], rs.gridcellsize[0], rs.gridnx);
    b[1] = gridcell(p[1], rs.gridorigin[1], rs.gridcellsize[1], rs.gridny);
    b[2] = gridcell(p[2], rs.gridorigin[2], rs.gridcellsize[2], rs.gridnz);
  }
  auto cellof = [&](int32_t n) {
    const int32_t *b = nbox.data() + 3 * static_cast<size_t>(n);
    return (static_cast<size_t>(b[2] - 1) * ny + static_cast<size_t>(b[1] - 1)) * nx +
           static_cast<size_t>(b[0] - 1);
  };

  // 7. Count.
  for (int32_t n = 0; n < nn; ++n) ++nncell[cellof(n)];
  const size_t total = static_cast<size_t>(nn);

  // 8. The bucket list.
  allocate(rs.jcellnodes, total, "initgrid, jcellnodes, 1");
  allocate(rs.j0cellnodes, 2 * ncells, "initgrid, j0cellnodes, 1");

  // 9. Offsets: first = cursor, last = cursor - 1 (empty until filed), k outer, i inner.
  int32_t cursor = 1;
  for (size_t cell = 0; cell < ncells; ++cell) {
    rs.j0cellnodes[2 * cell] = cursor;
    rs.j0cellnodes[2 * cell + 1] = cursor - 1;
    cursor += nncell[cell];
  }

  // 10.
  release(nncell);

  // 11. Filing in ascending node order, so a cell lists its nodes ascending.
  for (int32_t n = 0; n < nn; ++n) {
    size_t cell = cellof(n);
    int32_t pos = ++rs.j0cellnodes[2 * cell + 1];
    rs.jcellnodes[static_cast<size_t>(pos - 1)] = n + 1;
  }

  // 12.
  release(nbox);
}

}  // namespace wf
