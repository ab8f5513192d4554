// SPDX-License-Identifier: GPL-3.0-or-later
#include "warp/nodegrid.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/memory.h"
#include "base/text.h"

namespace wf {

namespace {

// A cell count from its cube-root estimate. What does not convert to a positive integer (zero,
// negative, not a number, infinite or beyond the integer range, as a degenerate box gives
// through its division by zero) becomes 1.
int32_t cellcount(double estimate) {
  const double t = std::trunc(estimate);
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

int64_t maxgridcells(int32_t nnodes) {
  return std::max<int64_t>(64 * static_cast<int64_t>(std::max(nnodes, 0)), int64_t{1} << 24);
}

NodeGrid gridlayout(const double *xyz, int32_t nn) {
  NodeGrid g;
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
  for (int a = 0; a < 3; ++a) g.origin[a] = lo[a];
  // Products in this order of multiplication.
  const double dn = static_cast<double>(nn);
  g.nx = cellcount(cuberoot(dn * lx * lx / (ly * lz)));
  g.ny = cellcount(cuberoot(dn * ly * ly / (lx * lz)));
  g.nz = cellcount(cuberoot(dn * lz * lz / (lx * ly)));
  g.cellsize[0] = lx / g.nx;
  g.cellsize[1] = ly / g.ny;
  g.cellsize[2] = lz / g.nz;
  return g;
}

void filenodes(NodeGrid &g, const double *xyz, int32_t nn) {
  const size_t nx = static_cast<size_t>(g.nx), ny = static_cast<size_t>(g.ny), nz = static_cast<size_t>(g.nz);
  // Counts of up to 2^31 each: the product fits 64 bits, and a product beyond the bound is not
  // tried at all.
  const long double cells = static_cast<long double>(nx) * ny * nz;
  if (cells > static_cast<long double>(maxgridcells(nn))) checkalloc(1, "initgrid, nncell, 1");
  const size_t ncells = nx * ny * nz;

  std::vector<int32_t> nncell;
  allocate(nncell, ncells, "initgrid, nncell, 1");

  // Cell of each node, kept as its linear cell number.
  std::vector<int32_t> nbox;
  allocate(nbox, 3 * static_cast<size_t>(std::max(nn, 0)), "initgrid, nbox, 1");
  for (int32_t n = 0; n < nn; ++n) {
    const double *p = xyz + 3 * static_cast<size_t>(n);
    int32_t *b = nbox.data() + 3 * static_cast<size_t>(n);
    b[0] = gridcell(p[0], g.origin[0], g.cellsize[0], g.nx);
    b[1] = gridcell(p[1], g.origin[1], g.cellsize[1], g.ny);
    b[2] = gridcell(p[2], g.origin[2], g.cellsize[2], g.nz);
  }
  auto cellof = [&](int32_t n) {
    const int32_t *b = nbox.data() + 3 * static_cast<size_t>(n);
    return (static_cast<size_t>(b[2] - 1) * ny + static_cast<size_t>(b[1] - 1)) * nx + static_cast<size_t>(b[0] - 1);
  };
  for (int32_t n = 0; n < nn; ++n) ++nncell[cellof(n)];

  allocate(g.cellnodes, static_cast<size_t>(std::max(nn, 0)), "initgrid, jcellnodes, 1");
  allocate(g.cellrange, 2 * ncells, "initgrid, j0cellnodes, 1");
  // Offsets: first = cursor, last = cursor - 1 (empty until filed), k outer, i inner.
  int32_t cursor = 1;
  for (size_t cell = 0; cell < ncells; ++cell) {
    g.cellrange[2 * cell] = cursor;
    g.cellrange[2 * cell + 1] = cursor - 1;
    cursor += nncell[cell];
  }
  release(nncell);
  // Filing in ascending node order, so a cell lists its nodes ascending.
  for (int32_t n = 0; n < nn; ++n) {
    const size_t cell = cellof(n);
    const int32_t pos = ++g.cellrange[2 * cell + 1];
    g.cellnodes[static_cast<size_t>(pos - 1)] = n + 1;
  }
}

}  // namespace wf
