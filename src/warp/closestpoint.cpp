// SPDX-License-Identifier: GPL-3.0-or-later
#include "warp/closestpoint.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <new>

#include "base/fatal.h"
#include "base/memory.h"
#include "surface/normals.h"

namespace wf {

namespace {

inline double clamp01(double x) { return x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x); }

// The point X of triangle q nearest to (px, py, pz) by the seven regions, and D = |X - P|^2.
// Both the linear pass and the index call this one routine, so a triangle gets the same bits
// whichever way it is reached.
inline double nearest(const QueryTriangle &q, double px, double py, double pz, double *x) {
  const double *cc = q.c, *u = q.e0, *v = q.e1;
  const double a = q.a, b = q.b, c = q.cc, det = q.det, den = q.den;
  const double dx = cc[0] - px, dy = cc[1] - py, dz = cc[2] - pz;
  const double d = u[0] * dx + u[1] * dy + u[2] * dz;
  const double e = v[0] * dx + v[1] * dy + v[2] * dz;
  double s = b * e - c * d;
  double tt = b * d - a * e;
  if (s + tt <= det) {
    if (s < 0.0) {
      if (tt < 0.0) {
        if (d < 0.0) {
          tt = 0.0;
          s = clamp01(-d / a);
        } else {
          s = 0.0;
          tt = clamp01(-e / c);
        }
      } else {
        s = 0.0;
        tt = clamp01(-e / c);
      }
    } else if (tt < 0.0) {
      tt = 0.0;
      s = clamp01(-d / a);
    } else {
      s = s / det;
      tt = tt / det;
    }
  } else if (s < 0.0) {
    const double xx = b + d, y = c + e;
    if (y > xx) {
      s = clamp01((y - xx) / den);
      tt = 1.0 - s;
    } else {
      s = 0.0;
      tt = clamp01(-e / c);
    }
  } else if (tt < 0.0) {
    const double xx = b + e, y = a + d;
    if (y > xx) {
      tt = clamp01((y - xx) / den);
      s = 1.0 - tt;
    } else {
      tt = 0.0;
      s = clamp01(-d / a);
    }
  } else {
    const double n = c + e - b - d;
    if (n <= 0.0) {
      s = 0.0;
      tt = 1.0;
    } else {
      s = clamp01(n / den);
      tt = 1.0 - s;
    }
  }
  x[0] = cc[0] + s * u[0] + tt * v[0];
  x[1] = cc[1] + s * u[1] + tt * v[1];
  x[2] = cc[2] + s * u[2] + tt * v[2];
  const double rx = x[0] - px, ry = x[1] - py, rz = x[2] - pz;
  return rx * rx + ry * ry + rz * rz;
}

// The best triangle so far: the smallest D, of equal D the first in file order; a D that is not
// a number or is infinite is never taken (none beats the start of +infinity).
struct Best {
  double d = std::numeric_limits<double>::infinity();
  int32_t t = -1;
  double x[3] = {0, 0, 0};
  void offer(const QueryTriangle &q, int32_t t0, double px, double py, double pz) {
    double y[3];
    const double dd = nearest(q, px, py, pz, y);
    if (dd < d || (t >= 0 && dd == d && t0 < t)) {
      d = dd;
      t = t0;
      x[0] = y[0];
      x[1] = y[1];
      x[2] = y[2];
    }
  }
};

// Squared distance from a point to a box (0 inside).
inline double boxdistance(const float *blo, const float *bhi, double px, double py, double pz) {
  // Without branches: of lo - p and p - hi at most one is positive.
  const double gx = std::max(double(blo[0]) - px, 0.0) + std::max(px - double(bhi[0]), 0.0);
  const double gy = std::max(double(blo[1]) - py, 0.0) + std::max(py - double(bhi[1]), 0.0);
  const double gz = std::max(double(blo[2]) - pz, 0.0) + std::max(pz - double(bhi[2]), 0.0);
  return gx * gx + gy * gy + gz * gz;
}
inline double boxdistance(const BoxNode &n, double px, double py, double pz) {
  return boxdistance(n.lo, n.hi, px, py, pz);
}

// Starts loading what a pushed node will read when it is taken: its children's boxes, or its
// triangles.
inline void prefetch(const BoxNode &n, const BoxNode *nodes, const QueryTriangle *terms) {
  if (n.count == 0) {
    __builtin_prefetch(nodes + n.first);
  } else {
    const char *p = reinterpret_cast<const char *>(terms + n.first);
    const char *e = reinterpret_cast<const char *>(terms + n.first + n.count);
    for (; p < e; p += 64) __builtin_prefetch(p);
  }
}

// Why a skip can never lose the winner. A computed X lies within a few units in the last place
// of its exact counterpart, which lies (up to the same rounding of s + t) on the triangle: every
// coordinate is off by less than 40 eps M, M the largest magnitude of any corner coordinate.
// Boxes are grown by 64 eps M (and rounded outwards to single precision), so every computed X
// lies in its leaf's box and in every box above it, and the exact distance of the box is at
// most the exact |X - P|^2. The computed D is at least that exact value times (1 - 6 eps), the
// computed box distance at most the exact one times (1 + 6 eps). A box is therefore skipped only
// when its computed distance times (1 - 2^-40), far below those factors, is still above the
// best D: then every D it holds is above the best as well, and ties are never skipped.
constexpr double shrink = 1.0 - 0x1p-40;
constexpr int leafsize = 4;
constexpr int maxdepth = 60;
constexpr int stacksize = 2 * maxdepth + 64;  // past maxdepth, middle cuts add at most 32 levels

float floatbelow(double v) {
  float f = static_cast<float>(v);
  if (static_cast<double>(f) > v) f = std::nextafter(f, -std::numeric_limits<float>::infinity());
  return f;
}
float floatabove(double v) {
  float f = static_cast<float>(v);
  if (static_cast<double>(f) < v) f = std::nextafter(f, std::numeric_limits<float>::infinity());
  return f;
}

}  // namespace

void closestpointlinear(const double *query, double *out, const QuerySet &set) {
  const double px = query[0], py = query[1], pz = query[2];
  // Every triangle in file order; a later one is taken only when strictly nearer.
  out[0] = px, out[1] = py, out[2] = pz;
  double best = std::numeric_limits<double>::infinity();
  const QueryTriangle *terms = set.terms.data();
  const bool moved = !set.position.empty();
  for (int32_t t = 0; t < set.ntri; ++t) {
    double x[3];
    const double d = nearest(terms[moved ? set.position[static_cast<size_t>(t)] : t], px, py, pz, x);
    if (d < best) {
      best = d;
      out[0] = x[0], out[1] = x[1], out[2] = x[2];
    }
  }
}

void closestpoint(const double *query, double *out, const QuerySet &set) {
  if (set.nodes.empty()) {
    closestpointlinear(query, out, set);
    return;
  }
  const double px = query[0], py = query[1], pz = query[2];
  Best best;
  const BoxNode *nodes = set.nodes.data();
  const int32_t *fileindex = set.fileindex.data();
  const QueryTriangle *terms = set.terms.data();
  // Nodes to visit, each with the lower bound of its distance (taken again when it is reached,
  // since the best may have improved in between).
  int32_t stack[stacksize];
  double bound[stacksize];
  int top = 0;
  stack[top] = 0;
  bound[top++] = 0.0;
  while (top > 0) {
    --top;
    if (bound[top] * shrink > best.d) continue;
    const BoxNode &n = nodes[stack[top]];
    if (n.count > 0) {
      for (int32_t k = n.first; k < n.first + n.count; ++k) best.offer(terms[k], fileindex[k], px, py, pz);
      continue;
    }
    // The nearer child is taken first; a child beyond the best is not pushed at all.
    const int32_t l = n.first, r = n.first + 1;
    const double dl = boxdistance(nodes[l], px, py, pz), dr = boxdistance(nodes[r], px, py, pz);
    const bool leftfirst = !(dr < dl);
    const int32_t nearchild = leftfirst ? l : r, farchild = leftfirst ? r : l;
    const double dnear = leftfirst ? dl : dr, dfar = leftfirst ? dr : dl;
    if (!(dfar * shrink > best.d)) {
      stack[top] = farchild;
      bound[top++] = dfar;
      prefetch(nodes[farchild], nodes, terms);
    }
    if (!(dnear * shrink > best.d)) {
      stack[top] = nearchild;
      bound[top++] = dnear;
      prefetch(nodes[nearchild], nodes, terms);
    }
  }
  if (best.t < 0) {
    out[0] = px, out[1] = py, out[2] = pz;
  } else {
    out[0] = best.x[0], out[1] = best.x[1], out[2] = best.x[2];
  }
}

QuerySet makequeryset(std::vector<double> &&corners, int32_t ntri, const double box[6]) {
  TriangleTerms terms;
  triangleterms(corners.data(), corners.size() / 3, nullptr, ntri, terms);
  QuerySet set;
  set.ntri = std::max(ntri, int32_t{0});
  set.nvrt = 3 * set.ntri;
  for (int k = 0; k < 6; ++k) set.bbox[k] = box[k];
  const size_t nt = static_cast<size_t>(set.ntri);
  allocate(set.terms, nt, "procref, aref, 1");
  for (size_t t = 0; t < nt; ++t) {
    QueryTriangle &q = set.terms[t];
    for (int k = 0; k < 3; ++k) {
      q.c[k] = corners[9 * t + k];
      q.e0[k] = terms.u[3 * t + k];
      q.e1[k] = terms.v[3 * t + k];
    }
    q.a = terms.uu[t];
    q.b = terms.uv[t];
    q.cc = terms.vv[t];
    q.det = terms.det[t];
    q.den = terms.den[t];
  }
  set.corners = std::move(corners);
  set.normal = std::move(terms.n);
  set.nnsq = std::move(terms.nn);
  buildindex(set);
  return set;
}

namespace {

// A triangle while the index is built: its box (grown and rounded outwards), the centre of its
// box, and its file number. The items are partitioned in place, so each range of the tree is
// one run of memory.
struct Item {
  float lo[3], hi[3], mid[3];
  int32_t t;
};

using NodeVec = std::vector<BoxNode, LineAllocator<BoxNode>>;

constexpr int nbins = 12;
constexpr float finf = std::numeric_limits<float>::infinity();

// The box of items[begin, end), and where the range splits: a binned surface-area cut on the
// widest axis of the centres; a range whose centres are all alike, that no cut improves, or past
// the depth limit is cut in the middle. Returns the split place (begin < split < end) or -1 for
// a leaf.
int32_t splitrange(Item *items, int32_t begin, int32_t end, int depth, BoxNode &box) {
  float clo[3], chi[3];
  for (int k = 0; k < 3; ++k) {
    box.lo[k] = clo[k] = finf;
    box.hi[k] = chi[k] = -finf;
  }
  for (int32_t i = begin; i < end; ++i) {
    const Item &it = items[i];
    for (int k = 0; k < 3; ++k) {
      box.lo[k] = std::min(box.lo[k], it.lo[k]);
      box.hi[k] = std::max(box.hi[k], it.hi[k]);
      clo[k] = std::min(clo[k], it.mid[k]);
      chi[k] = std::max(chi[k], it.mid[k]);
    }
  }
  const int32_t count = end - begin;
  if (count <= leafsize) return -1;
  int axis = 0;
  for (int k = 1; k < 3; ++k)
    if (chi[k] - clo[k] > chi[axis] - clo[axis]) axis = k;
  const float extent = chi[axis] - clo[axis];
  const int32_t middle = begin + count / 2;
  if (!(extent > 0) || !std::isfinite(extent) || depth >= maxdepth) return middle;
  const float base = clo[axis], scale = nbins / extent;
  auto binof = [&](const Item &it) {
    const int b = static_cast<int>((it.mid[axis] - base) * scale);
    return std::min(std::max(b, 0), nbins - 1);
  };
  int32_t n[nbins] = {0};
  float blo[nbins][3], bhi[nbins][3];
  for (int b = 0; b < nbins; ++b)
    for (int k = 0; k < 3; ++k) {
      blo[b][k] = finf;
      bhi[b][k] = -finf;
    }
  for (int32_t i = begin; i < end; ++i) {
    const Item &it = items[i];
    const int b = binof(it);
    ++n[b];
    for (int k = 0; k < 3; ++k) {
      blo[b][k] = std::min(blo[b][k], it.lo[k]);
      bhi[b][k] = std::max(bhi[b][k], it.hi[k]);
    }
  }
  auto area = [](const float lo[3], const float hi[3]) {
    const double x = double(hi[0]) - lo[0], y = double(hi[1]) - lo[1], z = double(hi[2]) - lo[2];
    return x * y + y * z + z * x;
  };
  // Areas of the boxes left of each cut, then the cost of each cut from the right.
  double leftarea[nbins];
  int32_t leftcount[nbins];
  float lo[3] = {finf, finf, finf}, hi[3] = {-finf, -finf, -finf};
  int32_t acc = 0;
  for (int b = 0; b < nbins - 1; ++b) {
    for (int k = 0; k < 3; ++k) {
      lo[k] = std::min(lo[k], blo[b][k]);
      hi[k] = std::max(hi[k], bhi[b][k]);
    }
    acc += n[b];
    leftcount[b] = acc;
    leftarea[b] = acc > 0 ? area(lo, hi) : 0.0;
  }
  for (int k = 0; k < 3; ++k) {
    lo[k] = finf;
    hi[k] = -finf;
  }
  double bestcost = std::numeric_limits<double>::infinity();
  int bestcut = -1;
  acc = 0;
  for (int b = nbins - 1; b >= 1; --b) {
    for (int k = 0; k < 3; ++k) {
      lo[k] = std::min(lo[k], blo[b][k]);
      hi[k] = std::max(hi[k], bhi[b][k]);
    }
    acc += n[b];
    const int32_t left = leftcount[b - 1];
    if (left == 0 || acc == 0) continue;
    const double cost = leftarea[b - 1] * left + area(lo, hi) * acc;
    if (cost < bestcost) {
      bestcost = cost;
      bestcut = b;
    }
  }
  if (bestcut <= 0) return middle;
  Item *mid = std::partition(items + begin, items + end, [&](const Item &it) { return binof(it) < bestcut; });
  return static_cast<int32_t>(mid - items);
}

struct Range {
  int32_t node, begin, end, depth;
};

// Builds the tree of items[r.begin, r.end) into nodes, whose slot r.node is already there;
// children pairs are appended at even places.
void buildtree(Item *items, Range root, NodeVec &nodes) {
  std::vector<Range> todo{root};
  while (!todo.empty()) {
    const Range r = todo.back();
    todo.pop_back();
    BoxNode box;
    const int32_t split = splitrange(items, r.begin, r.end, r.depth, box);
    if (split < 0) {
      box.first = r.begin;
      box.count = r.end - r.begin;
    } else {
      box.first = static_cast<int32_t>(nodes.size());
      box.count = 0;
      nodes.emplace_back();
      nodes.emplace_back();
      todo.push_back({box.first, r.begin, split, r.depth + 1});
      todo.push_back({box.first + 1, split, r.end, r.depth + 1});
    }
    nodes[static_cast<size_t>(r.node)] = box;
  }
}

}  // namespace

void buildindex(QuerySet &set) {
  const int32_t nt = std::max(set.ntri, int32_t{0});
  set.nodes.clear();
  if (!set.position.empty()) {  // back to file order first
    std::vector<QueryTriangle> fileorder(set.terms.size());
    for (size_t k = 0; k < set.terms.size(); ++k)
      fileorder[static_cast<size_t>(set.fileindex[k])] = set.terms[k];
    set.terms.swap(fileorder);
    set.fileindex.clear();
    set.position.clear();
  }
  if (nt == 0 || set.corners.size() < 9 * static_cast<size_t>(nt) ||
      set.terms.size() < static_cast<size_t>(nt))
    return;
  try {
    std::vector<Item> items(static_cast<size_t>(nt));
    // The margin of the boxes (see above).
    double m = 0.0;
    for (double v : set.corners) m = std::max(m, std::fabs(v));
    const double margin = 64 * std::numeric_limits<double>::epsilon() * m + 1e-300;
#pragma omp parallel for schedule(static)
    for (int32_t t = 0; t < nt; ++t) {
      const double *c = set.corners.data() + 9 * static_cast<size_t>(t);
      Item &it = items[static_cast<size_t>(t)];
      for (int k = 0; k < 3; ++k) {
        const double lo = std::min({c[k], c[3 + k], c[6 + k]});
        const double hi = std::max({c[k], c[3 + k], c[6 + k]});
        // A coordinate that is not a number makes a box that nothing skips.
        const bool bad = !(lo == lo) || !(hi == hi);
        it.lo[k] = bad ? -finf : floatbelow(lo - margin);
        it.hi[k] = bad ? finf : floatabove(hi + margin);
        it.mid[k] = bad ? 0.0f : static_cast<float>(0.5 * lo + 0.5 * hi);
      }
      it.t = t;
    }

    // The top of the tree is split here, down to ranges of a fixed size; those are built side by
    // side and joined in their order, so the tree never depends on the number of threads.
    constexpr int32_t piece = 1 << 15;
    NodeVec &nodes = set.nodes;
    nodes.reserve(static_cast<size_t>(nt / 2 + 2));
    nodes.emplace_back();
    nodes.emplace_back();  // unused: children pairs start at even places
    std::vector<Range> todo{{0, 0, nt, 0}}, pieces;
    while (!todo.empty()) {
      const Range r = todo.back();
      todo.pop_back();
      if (r.end - r.begin <= piece) {
        pieces.push_back(r);
        continue;
      }
      BoxNode box;
      const int32_t split = splitrange(items.data(), r.begin, r.end, r.depth, box);
      box.first = static_cast<int32_t>(nodes.size());
      box.count = 0;
      nodes.emplace_back();
      nodes.emplace_back();
      todo.push_back({box.first, r.begin, split, r.depth + 1});
      todo.push_back({box.first + 1, split, r.end, r.depth + 1});
      nodes[static_cast<size_t>(r.node)] = box;
    }
    const int np = static_cast<int>(pieces.size());
    std::vector<NodeVec> built(static_cast<size_t>(np));
    bool nomemory = false;
#pragma omp parallel for schedule(dynamic, 1)
    for (int p = 0; p < np; ++p) {
      try {
        NodeVec &local = built[static_cast<size_t>(p)];
        local.reserve(static_cast<size_t>((pieces[static_cast<size_t>(p)].end - pieces[static_cast<size_t>(p)].begin) / 2 + 2));
        local.emplace_back();
        local.emplace_back();
        buildtree(items.data(), {0, pieces[static_cast<size_t>(p)].begin, pieces[static_cast<size_t>(p)].end,
                                 pieces[static_cast<size_t>(p)].depth}, local);
      } catch (const std::bad_alloc &) {
#pragma omp atomic write
        nomemory = true;
      }
    }
    if (nomemory) throw std::bad_alloc();
    for (int p = 0; p < np; ++p) {
      // The piece's root takes its slot; its other nodes follow, their children moved along.
      const NodeVec &local = built[static_cast<size_t>(p)];
      const int32_t shift = static_cast<int32_t>(nodes.size()) - 2;
      auto moved = [shift](BoxNode n) {
        if (n.count == 0) n.first += shift;
        return n;
      };
      nodes[static_cast<size_t>(pieces[static_cast<size_t>(p)].node)] = moved(local[0]);
      for (size_t k = 2; k < local.size(); ++k) nodes.push_back(moved(local[k]));
      NodeVec().swap(built[static_cast<size_t>(p)]);
    }

    // The terms move into the order of the leaves, so that a leaf reads one run of memory.
    std::vector<QueryTriangle> leaforder(static_cast<size_t>(nt));
    set.position.resize(static_cast<size_t>(nt));
    set.fileindex.resize(static_cast<size_t>(nt));
#pragma omp parallel for schedule(static)
    for (int32_t k = 0; k < nt; ++k) {
      const int32_t t = items[static_cast<size_t>(k)].t;
      leaforder[static_cast<size_t>(k)] = set.terms[static_cast<size_t>(t)];
      set.position[static_cast<size_t>(t)] = k;
      set.fileindex[static_cast<size_t>(k)] = t;
    }
    set.terms.swap(leaforder);
  } catch (const std::bad_alloc &) {
    set.nodes.clear();
    checkalloc(1, "closestpoint, index, 1");
  }
}

}  // namespace wf
