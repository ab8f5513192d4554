// SPDX-License-Identifier: GPL-3.0-or-later
// The displacement of one point: the inverse-distance-weighted average over the nearest active
// mesh nodes found by a ring search in the node grid (nodalwarp), or the pull towards the
// scanned surface (warpvertex, scan path). Nothing here allocates; the caller owns the three
// work arrays, so the routines run unchanged on any thread.
//
// nodalwarp is four steps, each its own function below: ringsearch (the nodes), nodeaverage
// (their displacement), zrule (asked once, at the point's height before the move, and read both
// by the displacement and by the reference pull) and referencepull (with *REFG, instead of the
// plain move by warpscale times the displacement).
#include <cmath>
#include <cstdlib>
#include <new>

#include "warp/warpfield.h"

#include "base/memory.h"
#include "warp/rootpow.h"

namespace wf {

namespace {

// The nodes as the grid and the simulation list them: the bucket list names a node, whose flag
// and coordinates are then looked up (the reference that packed nodes are tested against).
struct ListedNodes {
  const int32_t *cellnodes;
  const uint8_t *active;
  const double *xyz;
  // The node at position pos (1-based) of the bucket list: false for one that no element uses,
  // else its number and coordinates.
  bool at(int32_t pos, int32_t &n, const double *&q) const {
    n = cellnodes[pos - 1];
    if (!active[n - 1]) return false;
    q = xyz + 3 * static_cast<size_t>(n - 1);
    return true;
  }
};

// The nodes packed in the order of the bucket list (packnodes): one record holds all of it.
struct PackedNodes {
  const RingNode *ring;
  bool at(int32_t pos, int32_t &n, const double *&q) const {
    const RingNode &r = ring[pos - 1];
    n = r.n;
    q = r.xyz;
    return n > 0;
  }
};

// Search state of one point.
template <class Nodes>
struct Search {
  double px, py, pz;
  double snaptolsq;
  Nodes source;
  double *dist2;
  int32_t *nodes;
  int navg;
  int32_t count = 0;
  double dmax = 0.0;
  int32_t snap = 0;
};

// The nodes at positions first..last of the bucket list (one cell, or a row of cells), in
// their stored order. Returns true when a node within the snap
// tolerance ends the search.
template <class Nodes>
inline bool visitcell(Search<Nodes> &st, int32_t first, int32_t last) {
  for (int32_t pos = first; pos <= last; ++pos) {
    int32_t n;
    const double *q;
    if (!st.source.at(pos, n, q)) continue;
    ++st.count;
    const double dx = st.px - q[0], dy = st.py - q[1], dz = st.pz - q[2];
    const double d2 = dx * dx + dy * dy + dz * dz;
    if (d2 <= st.snaptolsq) {
      st.snap = n;
      return true;
    }
    if (st.count <= st.navg) {
      st.dist2[st.count - 1] = d2;
      st.nodes[st.count - 1] = n;
      st.dmax = st.count == 1 ? d2 : (d2 > st.dmax ? d2 : st.dmax);
    } else if (d2 < st.dmax) {
      // Replace the first position holding the largest distance; a tie keeps the old node.
      // One pass finds it and the largest of the others, which with d2 is the new maximum.
      int worst = 0;
      double top = st.dist2[0], rest = -1.0;
      for (int m = 1; m < st.navg; ++m) {
        const double v = st.dist2[m];
        if (v > top) {
          rest = top;
          top = v;
          worst = m;
        } else if (v > rest) {
          rest = v;
        }
      }
      st.dist2[worst] = d2;
      st.nodes[worst] = n;
      st.dmax = d2 > rest ? d2 : rest;
    }
  }
  return false;
}

// What the ring search found for a point: the first node in visiting order within the snap
// tolerance (0 for none), else how many positions of the work arrays hold a node (at most navg).
struct Found {
  int32_t snap = 0;
  int32_t filled = 0;
};

// The ring search of the header, for the point p: the nearest active nodes as the rules there
// find them, into work.dist2 and work.nodes (positions 0..filled-1; the rest are left as they
// were). Reads only the grid, the node count and the nodes' coordinates and flags from source.
template <class Nodes>
Found ringsearch(const Nodes &source, int32_t nnodes, const NodeGrid &grid, const WarpParams &wp, const double *point,
                 WarpWork &work) {
  const int navg = static_cast<int>(work.dist2.size());
  const int32_t nx = grid.nx, ny = grid.ny, nz = grid.nz;
  const int32_t ix = gridcell(point[0], grid.origin[0], grid.cellsize[0], nx);
  const int32_t iy = gridcell(point[1], grid.origin[1], grid.cellsize[1], ny);
  const int32_t iz = gridcell(point[2], grid.origin[2], grid.cellsize[2], nz);

  Search<Nodes> st;
  st.px = point[0];
  st.py = point[1];
  st.pz = point[2];
  st.snaptolsq = wp.snaptolsq;
  st.source = source;
  st.dist2 = work.dist2.data();
  st.nodes = work.nodes.data();
  st.navg = navg;

  double h = grid.cellsize[0];
  if (grid.cellsize[1] < h) h = grid.cellsize[1];
  if (grid.cellsize[2] < h) h = grid.cellsize[2];

  // Beyond this ring nothing of the grid is left to see: the search then ends whatever it holds,
  // which changes no result but keeps a search with too few active nodes from running forever.
  int32_t rcover = ix - 1;
  if (nx - ix > rcover) rcover = nx - ix;
  if (iy - 1 > rcover) rcover = iy - 1;
  if (ny - iy > rcover) rcover = ny - iy;
  if (iz - 1 > rcover) rcover = iz - 1;
  if (nz - iz > rcover) rcover = nz - iz;

  const int32_t *j0 = grid.cellrange.data();
  const size_t sx = static_cast<size_t>(nx), sxy = sx * static_cast<size_t>(ny);
  auto cellbase = [&](int32_t i, int32_t j, int32_t k) {
    return 2 * (static_cast<size_t>(k - 1) * sxy + static_cast<size_t>(j - 1) * sx + static_cast<size_t>(i - 1));
  };

  // Squared distance of the point from the grid's box, a hair short (nodes are filed by rounded
  // arithmetic): every node is at least that far.
  double out2 = 0.0;
  const int32_t counts[3] = {nx, ny, nz};
  for (int a = 0; a < 3; ++a) {
    const double lo = grid.origin[a], hi = grid.origin[a] + counts[a] * grid.cellsize[a];
    const double slack = 1e-9 * (std::fabs(lo) + std::fabs(hi) + grid.cellsize[a]);
    double d = lo - point[a] - slack;
    if (point[a] - hi - slack > d) d = point[a] - hi - slack;
    if (d > 0) out2 += d * d;
  }
  const bool finite = std::isfinite(point[0]) && std::isfinite(point[1]) && std::isfinite(point[2]);

  int32_t r = -1;
  bool snapped = false;
  // The box of cells that can hold a node nearer than the largest held one (all cells until
  // navg are held); a cell outside it holds no node that would enter, so the parts of a ring
  // outside it are passed over, which keeps the order of the nodes visited.
  int32_t bl[3] = {1, 1, 1}, bh[3] = {nx, ny, nz};
  // Visits the cells lo..hi (clipped to the box) of the row (j, k) as one run.
  auto row = [&](int32_t lo, int32_t hi, int32_t j, int32_t k) {
    lo = lo > bl[0] ? lo : bl[0];
    hi = hi < bh[0] ? hi : bh[0];
    if (lo > hi) return false;
    const size_t b0 = cellbase(lo, j, k), b1 = cellbase(hi, j, k);
    return visitcell(st, j0[b0], j0[b1 + 1]);
  };
  for (;;) {
    // Kept deliberately: the squared distance is compared with a plain length (r * h is not
    // squared): the search stops earlier than a radius test where r * h is below 1 and later
    // where it is above, and the weights of every warp follow from it.
    // [pinned: NodalWarp.RingSearchStartAndStoppingRule; regression set]
    // Kept deliberately: with fewer active nodes than navg this test can never pass; the search
    // then runs until every node is seen or the rings cover the grid, and the average takes the
    // nodes found (only filled positions, below). [pinned: NodalWarp.TooFewActiveNodesAveragesOnlyWhatWasFound]
    if (st.count >= navg && st.dmax <= r * h) break;
    if (st.count >= nnodes) break;
    if (r >= rcover) break;
    // Rings that cannot change the answer are not looked at. Once navg nodes are held, a node
    // enters only when strictly nearer than the largest held one, and the count of nodes seen
    // no longer matters. Every node of ring r + 1 and beyond lies r - 1 cells (of at least h)
    // away from the home cell besides the point's distance from the box; when that is not
    // nearer than the largest held distance, the search ends with the same answer as after the
    // last ring, so the cost of a point far from the grid does not grow with its distance. A
    // point that is not finite has no node nearer than any other: the first navg stay.
    if (st.count >= navg && wp.ringbound) {
      if (!finite) break;
      const double g = r > 0 ? (r - 1e-6) * h : 0.0;
      if ((out2 + g * g) * (1.0 - 1e-12) >= st.dmax) break;
      // The box of the ball of the largest held distance, a cell wider on every side (nodes are
      // filed by rounded arithmetic).
      const double reach = std::sqrt(st.dmax) * (1.0 + 1e-9);
      for (int a = 0; a < 3; ++a) {
        bl[a] = gridcell(point[a] - reach, grid.origin[a], grid.cellsize[a], counts[a]) - 1;
        bh[a] = gridcell(point[a] + reach, grid.origin[a], grid.cellsize[a], counts[a]) + 1;
        if (bl[a] < 1) bl[a] = 1;
        if (bh[a] > counts[a]) bh[a] = counts[a];
      }
    }
    ++r;
    const int32_t klo = iz - r > bl[2] ? iz - r : bl[2], khi = iz + r < bh[2] ? iz + r : bh[2];
    const int32_t jlo = iy - r > 1 ? iy - r : 1, jhi = iy + r < ny ? iy + r : ny;
    const int32_t ilo = ix - r > 1 ? ix - r : 1, ihi = ix + r < nx ? ix + r : nx;
    const int32_t jfrom = jlo > bl[1] ? jlo : bl[1], jto = jhi < bh[1] ? jhi : bh[1];
    // The two ends of the inner rows, where they lie in the box.
    const bool lowend = ix - r >= 1 && ix - r >= bl[0] && ix - r <= bh[0];
    const bool highend = ix + r <= nx && ix + r >= bl[0] && ix + r <= bh[0];
    for (int32_t k = klo; k <= khi && !snapped; ++k) {
      const bool kface = std::abs(k - iz) == r;
      if (!kface && !lowend && !highend) {
        // Only the two rows of the ring's sides in j hold cells of the box: low one first.
        for (const int32_t j : {iy - r, iy + r}) {
          if (j < jfrom || j > jto || (j == iy + r && r == 0)) continue;
          if (row(ilo, ihi, j, k)) {
            snapped = true;
            break;
          }
        }
        continue;
      }
      for (int32_t j = jfrom; j <= jto; ++j) {
        if (kface || std::abs(j - iy) == r) {
          // A whole row of the ring's shell. The cells of a row follow each other in the
          // bucket list, so their nodes form one run: first of the low cell to last of the
          // high cell, visited in the same order as cell by cell.
          if (row(ilo, ihi, j, k)) {
            snapped = true;
            break;
          }
        } else {
          // Only the two ends of the row belong to the ring, low end first.
          if (lowend) {
            size_t base = cellbase(ix - r, j, k);
            if (visitcell(st, j0[base], j0[base + 1])) {
              snapped = true;
              break;
            }
          }
          if (highend) {
            size_t base = cellbase(ix + r, j, k);
            if (visitcell(st, j0[base], j0[base + 1])) {
              snapped = true;
              break;
            }
          }
        }
      }
    }
    if (snapped) break;
  }

  Found found;
  if (snapped)
    found.snap = st.snap;
  else
    found.filled = st.count < navg ? st.count : navg;
  return found;
}

// The displacement u of what the search found: the snapped node's own, unweighted; otherwise
// the average over the filled positions with weights 1 / d2^halfexponent, summed in position
// order (only filled positions count; with none u is zero).
void nodeaverage(const Found &found, const Simulation &sim, double halfexponent, WarpWork &work, double u[3]) {
  u[0] = u[1] = u[2] = 0.0;
  const double *disp = sim.nodedisp.data();
  if (found.snap != 0) {
    const double *dn = disp + 3 * static_cast<size_t>(found.snap - 1);
    u[0] = dn[0];
    u[1] = dn[1];
    u[2] = dn[2];
    return;
  }
  const int nfill = static_cast<int>(found.filled);
  if (nfill == 0) return;
  const double *dist2 = work.dist2.data();
  const int32_t *nodes = work.nodes.data();
  double *weights = work.weights.data();
  double wsum = 0.0;
  // The square root, the usual exponent, is pow's to the bit without most of its calls.
  const auto weigh = [&](auto power) {
    for (int m = 0; m < nfill; ++m) {
      weights[m] = 1.0 / power(dist2[m]);
      wsum += weights[m];
    }
  };
  if (halfexponent == 0.5)
    weigh([](double d2) { return rootpow(d2); });
  else
    weigh([halfexponent](double d2) { return std::pow(d2, halfexponent); });
  double sx0 = 0.0, sy0 = 0.0, sz0 = 0.0;
  for (int m = 0; m < nfill; ++m) {
    const double *dn = disp + 3 * static_cast<size_t>(nodes[m] - 1);
    sx0 += weights[m] * dn[0];
    sy0 += weights[m] * dn[1];
    sz0 += weights[m] * dn[2];
  }
  u[0] = sx0 / wsum;
  u[1] = sy0 / wsum;
  u[2] = sz0 / wsum;
}

// The Z rules at a point of height z (before its move): with *FIXZ a point within ztol of the
// build plane (inclusive) is on the plane, and with *NRLE no point moves in Z. Both the
// displacement (its Z dropped) and the reference pull (the new Z chosen) read the same answer.
struct ZRule {
  bool onplane = false;
  bool norel = false;
  bool keepz() const { return onplane || norel; }
};
ZRule zrule(const WarpParams &wp, double z) {
  ZRule rule;
  rule.onplane = wp.fixz && std::fabs(z - wp.buildplane) <= wp.ztol;
  rule.norel = wp.norel;
  return rule;
}

// The reference pull of a point that the displacement u (Z rule applied) would move: the point
// it came from, q = p - warpscale u, is taken to its closest point c on the reference set, and
// the point moves by -warpscale (c - q) from where it stands in x and y; in z it stays with
// *NRLE, lands exactly on the build plane when on it, and otherwise moves from its old height
// alike.
void referencepull(const QuerySet &ref, const WarpParams &wp, const ZRule &rule, const double u[3], double *point) {
  const double ws = wp.warpscale;
  const double z = point[2];
  double q[3], c[3];
  q[0] = point[0] - ws * u[0];
  q[1] = point[1] - ws * u[1];
  q[2] = point[2] - ws * u[2];
  closestpoint(q, c, ref);
  point[0] = point[0] - ws * (c[0] - q[0]);
  point[1] = point[1] - ws * (c[1] - q[1]);
  if (rule.norel) {
    // z unchanged
  } else if (rule.onplane) {
    point[2] = wp.buildplane;
  } else {
    point[2] = z - ws * (c[2] - q[2]);
  }
}

}  // namespace

void nodalwarp(const WarpField &field, double *point, WarpWork &work) {
  const WarpParams &wp = field.params;
  const Simulation &sim = *field.sim;
  const Found found =
      field.ringnodes ? ringsearch(PackedNodes{field.ringnodes}, sim.nnodes, *field.grid, wp, point, work)
                      : ringsearch(ListedNodes{field.grid->cellnodes.data(), sim.nodeactive.data(), sim.nodexyz.data()},
                                   sim.nnodes, *field.grid, wp, point, work);
  double u[3];
  nodeaverage(found, sim, wp.halfexponent, work, u);
  const ZRule rule = zrule(wp, point[2]);
  if (rule.keepz()) u[2] = 0.0;
  if (wp.refg) {
    referencepull(*field.ref, wp, rule, u, point);
    return;
  }
  const double ws = wp.warpscale;
  point[0] = point[0] + ws * u[0];
  point[1] = point[1] + ws * u[1];
  point[2] = point[2] + ws * u[2];
}

RingNodes packnodes(const Simulation &sim, const NodeGrid &grid) {
  RingNodes ring;
  const size_t count = grid.cellnodes.size();
  try {
    ring.resize(count);
  } catch (const std::bad_alloc &) {
    checkalloc(1, "warpstl, ringnodes, 1");
  }
  const int32_t *listed = grid.cellnodes.data();
  const double *xyz = sim.nodexyz.data();
  const uint8_t *active = sim.nodeactive.data();
  RingNode *out = ring.data();
  const int64_t n = static_cast<int64_t>(count);
#pragma omp parallel for schedule(static) default(none) shared(listed, xyz, active, out) firstprivate(n)
  for (int64_t k = 0; k < n; ++k) {
    const int32_t node = listed[k];
    const double *p = xyz + 3 * static_cast<size_t>(node - 1);
    RingNode &r = out[k];
    r.xyz[0] = p[0];
    r.xyz[1] = p[1];
    r.xyz[2] = p[2];
    r.n = active[node - 1] ? node : -node;
  }
  return ring;
}

WarpField withringnodes(const WarpField &field, RingNodes &storage) {
  if (field.ringnodes || field.params.scng || !field.sim || !field.grid) return field;
  storage = packnodes(*field.sim, *field.grid);
  WarpField packed = field;
  packed.ringnodes = storage.data();
  return packed;
}

void warpvertex(const WarpField &field, double *point, WarpWork &work) {
  if (!field.params.scng) {
    nodalwarp(field, point, work);
    return;
  }
  // Scan path: 27 queries over three points on the diagonal (offsets -0.1, 0, 0.1 on all three
  // coordinates), nine of each. The closest point of one offset is the same for all nine, so it
  // is found once and its pull added nine times, in the same order of additions.
  double s[3] = {0.0, 0.0, 0.0};
  for (int k = 0; k < 3; ++k) {
    const double o = (2 * k - 2) * 0.05;
    double q[3] = {point[0] + o, point[1] + o, point[2] + o};
    double c[3];
    closestpoint(q, c, *field.scn);
    const double dx = c[0] - q[0], dy = c[1] - q[1], dz = c[2] - q[2];
    for (int rep = 0; rep < 9; ++rep) {
      s[0] += dx;
      s[1] += dy;
      s[2] += dz;
    }
  }
  const double ws = field.params.warpscale;
  point[0] = point[0] + ws * s[0] / 27.0;
  point[1] = point[1] + ws * s[1] / 27.0;
  point[2] = point[2] + ws * s[2] / 27.0;
}

}  // namespace wf
