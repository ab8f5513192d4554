// SPDX-License-Identifier: GPL-3.0-or-later
// Candidate pairs come from a uniform grid: every facet is entered in each cell that its box
// touches, the entries are sorted by cell, and within a cell the boxes are swept along x. A pair
// is looked at only in the cell that holds the lowest corner of the two boxes' overlap, so each
// pair is tested once. A search about flagged facets (the patches of a repair, a few hundred among
// millions) lays the grid over them alone and enters only the facets that touch their cells, so
// the rest of the surface is read once and nothing is kept for it. Cells are shared out among the
// threads (repair/workers.h); each thread keeps its own pairs, and the pairs are sorted at the
// end, so the answer does not depend on the threads.
#include "repair/crossings.h"

#include <algorithm>
#include <atomic>
#include <cmath>

#include "repair/cgalkernel.h"
#include "repair/workers.h"

namespace wf {

namespace {

using cgal::Kernel;
using cgal::Point;
using cgal::Segment;
using cgal::Triangle;

struct Box {
  double lo[3], hi[3];
};

Point pointof(const std::vector<double> &p, int32_t v) {
  return Point(p[3 * size_t(v)], p[3 * size_t(v) + 1], p[3 * size_t(v) + 2]);
}

// The exact test of two facets that are not degenerate.
bool cross(const std::vector<double> &p, const Facet &f, const Facet &g) {
  int shared = 0, fi = -1, gj = -1;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      if (f[size_t(i)] == g[size_t(j)]) {
        ++shared;
        if (fi < 0) fi = i, gj = j;
      }
  if (shared == 3) return true;  // the same facet twice
  if (shared == 2) {
    // The corner of each that is not on the shared edge.
    int r = 0, s = 0;
    for (int i = 0; i < 3; ++i) {
      if (f[size_t(i)] != g[0] && f[size_t(i)] != g[1] && f[size_t(i)] != g[2]) r = f[size_t(i)];
      if (g[size_t(i)] != f[0] && g[size_t(i)] != f[1] && g[size_t(i)] != f[2]) s = g[size_t(i)];
    }
    int a = -1, b = -1;
    for (int i = 0; i < 3; ++i)
      if (f[size_t(i)] != r) (a < 0 ? a : b) = f[size_t(i)];
    const Point pa = pointof(p, a), pb = pointof(p, b), pr = pointof(p, r), ps = pointof(p, s);
    return CGAL::coplanar(pa, pb, pr, ps) && CGAL::coplanar_orientation(pa, pb, pr, ps) == CGAL::POSITIVE;
  }
  const Triangle tf(pointof(p, f[0]), pointof(p, f[1]), pointof(p, f[2]));
  const Triangle tg(pointof(p, g[0]), pointof(p, g[1]), pointof(p, g[2]));
  if (shared == 1) {
    const Segment sf(pointof(p, f[size_t((fi + 1) % 3)]), pointof(p, f[size_t((fi + 2) % 3)]));
    const Segment sg(pointof(p, g[size_t((gj + 1) % 3)]), pointof(p, g[size_t((gj + 2) % 3)]));
    return CGAL::do_intersect(tf, sg) || CGAL::do_intersect(tg, sf);
  }
  return CGAL::do_intersect(tf, tg);
}

}  // namespace

bool collinearfacet(const std::vector<double> &points, const Facet &f) {
  return CGAL::collinear(pointof(points, f[0]), pointof(points, f[1]), pointof(points, f[2]));
}

std::vector<FacetPair> crossingpairs(const std::vector<double> &points, const std::vector<Facet> &facets,
                                     const std::vector<char> *among, size_t limit) {
  const size_t n = facets.size();
  std::vector<FacetPair> out;
  if (n < 2) return out;
  // The box of facet t; false when a coordinate is not finite (min and max would pass over a
  // value that is not a number).
  auto boxof = [&](size_t t, Box &b) {
    bool finite = true;
    for (int k = 0; k < 3; ++k) {
      b.lo[k] = HUGE_VAL, b.hi[k] = -HUGE_VAL;
      for (int c = 0; c < 3; ++c) {
        const double x = points[3 * size_t(facets[t][size_t(c)]) + size_t(k)];
        finite = finite && std::isfinite(x);
        b.lo[k] = std::min(b.lo[k], x);
        b.hi[k] = std::max(b.hi[k], x);
      }
    }
    return finite;
  };
  // The facets that take part (degenerate ones do not), by their numbers, with their boxes. The
  // grid is laid over those that decide it: every facet, or with `among` the flagged ones alone,
  // so that a search about a few patches never touches memory in proportion to the surface.
  std::vector<int32_t> id;
  std::vector<Box> box;
  if (!among) id.reserve(n), box.reserve(n);
  double glo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, ghi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
  double extent = 0;
  for (size_t t = 0; t < n; ++t) {
    Box b;
    if ((among && !(*among)[t]) || !boxof(t, b) || collinearfacet(points, facets[t])) continue;
    id.push_back(int32_t(t));
    box.push_back(b);
    for (int k = 0; k < 3; ++k) {
      glo[k] = std::min(glo[k], b.lo[k]);
      ghi[k] = std::max(ghi[k], b.hi[k]);
      extent += b.hi[k] - b.lo[k];
    }
  }
  const size_t ndecide = id.size();
  if (ndecide < (among ? 1 : 2)) return out;
  // Cells about twice the mean box side, at most 2^20 a side; a box beyond the grid is clamped
  // to its outer cells.
  double h = 2.0 * extent / (3.0 * double(ndecide));
  for (int k = 0; k < 3; ++k) h = std::max(h, (ghi[k] - glo[k]) / double(1 << 20));
  if (!(h > 0)) h = 1;
  int64_t dim[3];
  for (int k = 0; k < 3; ++k) dim[k] = int64_t((ghi[k] - glo[k]) / h) + 1;
  auto cell = [&](int k, double x) {
    const int64_t c = int64_t((x - glo[k]) / h);
    return std::clamp<int64_t>(c, 0, dim[k] - 1);
  };
  auto key = [&](int64_t i, int64_t j, int64_t k) { return uint64_t((i * dim[1] + j) * dim[2] + k); };

  // A facet that would be entered in very many cells (far larger than the others) is tested
  // against every box instead.
  auto cells = [&](const Box &b) {
    double c = 1;
    for (int k = 0; k < 3; ++k) c *= double(cell(k, b.hi[k]) - cell(k, b.lo[k]) + 1);
    return c;
  };
  constexpr double bigcells = 4096;
  auto eachcell = [&](const Box &b, auto &&f) {
    for (int64_t i = cell(0, b.lo[0]); i <= cell(0, b.hi[0]); ++i)
      for (int64_t j = cell(1, b.lo[1]); j <= cell(1, b.hi[1]); ++j)
        for (int64_t k = cell(2, b.lo[2]); k <= cell(2, b.hi[2]); ++k)
          if (!f(key(i, j, k))) return;
  };

  // With `among`, only the cells that a flagged facet touches are of interest, and the other
  // facets take part where their box meets the flagged facets' box and touches such a cell (or
  // where they are big, or a flagged facet is).
  std::vector<uint64_t> wanted;
  if (among) {
    bool bigflagged = false;
    for (size_t i = 0; i < ndecide; ++i) {
      if (cells(box[i]) > bigcells) {
        bigflagged = true;
        continue;
      }
      eachcell(box[i], [&](uint64_t c) {
        wanted.push_back(c);
        return true;
      });
    }
    std::sort(wanted.begin(), wanted.end());
    wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
    for (size_t t = 0; t < n; ++t) {
      Box b;
      if ((*among)[t] || !boxof(t, b)) continue;
      bool near = true;
      for (int k = 0; k < 3; ++k) near = near && b.lo[k] <= ghi[k] && b.hi[k] >= glo[k];
      if (!near) continue;
      bool touches = bigflagged || cells(b) > bigcells;
      if (!touches)
        eachcell(b, [&](uint64_t c) {
          touches = std::binary_search(wanted.begin(), wanted.end(), c);
          return !touches;
        });
      if (!touches || collinearfacet(points, facets[t])) continue;
      id.push_back(int32_t(t));
      box.push_back(b);
    }
  }
  const size_t nlive = id.size();
  if (nlive < 2) return out;

  std::vector<int32_t> big;  // places in id
  std::vector<std::pair<uint64_t, int32_t>> entries;
  entries.reserve(2 * nlive);
  for (size_t i = 0; i < nlive; ++i) {
    if (cells(box[i]) > bigcells) {
      big.push_back(int32_t(i));
      continue;
    }
    eachcell(box[i], [&](uint64_t c) {
      if (!among || std::binary_search(wanted.begin(), wanted.end(), c)) entries.emplace_back(c, int32_t(i));
      return true;
    });
  }
  parallelsort(entries.begin(), entries.end(), std::less<>());
  // Where each cell's run starts.
  std::vector<size_t> runs;
  for (size_t e = 0; e < entries.size(); ++e)
    if (e == 0 || entries[e].first != entries[e - 1].first) runs.push_back(e);
  runs.push_back(entries.size());

  std::vector<std::vector<FacetPair>> found(static_cast<size_t>(repairthreads()));
  std::vector<std::vector<int32_t>> lists(found.size());
  std::atomic<size_t> total{0};
  // The pair of places a and b, when at least one is flagged and the facets cross.
  auto test = [&](std::vector<FacetPair> &mine, int32_t a, int32_t b) {
    const int32_t f = std::min(id[size_t(a)], id[size_t(b)]), g = std::max(id[size_t(a)], id[size_t(b)]);
    if (among && !(*among)[size_t(f)] && !(*among)[size_t(g)]) return;
    if (cross(points, facets[size_t(f)], facets[size_t(g)])) {
      mine.emplace_back(f, g);
      total.fetch_add(1, std::memory_order_relaxed);
    }
  };
  parallelfor(runs.size() - 1, 64, [&](int thread, size_t r) {
    if (limit && total.load(std::memory_order_relaxed) >= limit) return;
    std::vector<FacetPair> &mine = found[size_t(thread)];
    std::vector<int32_t> &list = lists[size_t(thread)];
    const size_t from = runs[r], to = runs[r + 1];
    if (to - from < 2) return;
    const uint64_t here = entries[from].first;
    list.clear();
    for (size_t e = from; e < to; ++e) list.push_back(entries[e].second);
    std::sort(list.begin(), list.end(), [&](int32_t a, int32_t b) {
      return box[size_t(a)].lo[0] < box[size_t(b)].lo[0] || (box[size_t(a)].lo[0] == box[size_t(b)].lo[0] && a < b);
    });
    for (size_t a = 0; a < list.size(); ++a) {
      const Box &ba = box[size_t(list[a])];
      for (size_t b = a + 1; b < list.size(); ++b) {
        const Box &bb = box[size_t(list[b])];
        if (bb.lo[0] > ba.hi[0]) break;
        if (bb.lo[1] > ba.hi[1] || ba.lo[1] > bb.hi[1] || bb.lo[2] > ba.hi[2] || ba.lo[2] > bb.hi[2]) continue;
        // Only in the cell of the overlap's lowest corner.
        const uint64_t low = key(cell(0, std::max(ba.lo[0], bb.lo[0])), cell(1, std::max(ba.lo[1], bb.lo[1])),
                                 cell(2, std::max(ba.lo[2], bb.lo[2])));
        if (low == here) test(mine, list[a], list[b]);
      }
    }
  });
  // The big facets against every box (a pair of two big ones once).
  std::vector<char> isbig(big.empty() ? 0 : nlive, 0);
  for (const int32_t i : big) isbig[size_t(i)] = 1;
  parallelfor(big.size(), 1, [&](int thread, size_t k) {
    std::vector<FacetPair> &mine = found[size_t(thread)];
    const int32_t a = big[k];
    const Box &ba = box[size_t(a)];
    for (size_t u = 0; u < nlive; ++u) {
      if (int32_t(u) == a || (isbig[u] && int32_t(u) < a)) continue;
      if (limit && total.load(std::memory_order_relaxed) >= limit) break;
      const Box &bb = box[u];
      if (bb.lo[0] > ba.hi[0] || ba.lo[0] > bb.hi[0] || bb.lo[1] > ba.hi[1] || ba.lo[1] > bb.hi[1] ||
          bb.lo[2] > ba.hi[2] || ba.lo[2] > bb.hi[2])
        continue;
      test(mine, a, int32_t(u));
    }
  });
  for (auto &v : found) out.insert(out.end(), v.begin(), v.end());
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace wf
