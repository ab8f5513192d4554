// SPDX-License-Identifier: GPL-3.0-or-later
#include "warp/closestpoint.h"

#include <emmintrin.h>
#include <sys/mman.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "base/fatal.h"
#include "base/memory.h"

namespace wf {

namespace {

inline double clamp01(double x) { return x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x); }

// The point X of the triangle with corners p1, p2, p3 nearest to (px, py, pz) by the seven
// regions, and D = |X - P|^2. Its terms are worked out here, always by the same operations in
// the same order. The linear pass calls it; the index takes triangles two at a time through
// nearestpair, which repeats these operations lane by lane, so a triangle gets the same bits
// whichever way it is reached.
inline double nearest(const double *p1, const double *p2, const double *p3, double px, double py, double pz,
                      double *x) {
  const double u[3] = {p2[0] - p1[0], p2[1] - p1[1], p2[2] - p1[2]};
  const double v[3] = {p3[0] - p1[0], p3[1] - p1[1], p3[2] - p1[2]};
  const double a = u[0] * u[0] + u[1] * u[1] + u[2] * u[2];
  const double b = u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
  const double c = v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
  const double det = std::fabs(a * c - b * b), den = a - 2.0 * b + c;
  const double *cc = p1;
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

// nearest() for two triangles at once, lane by lane by the same operations in the same order,
// so each lane gets the bits nearest() gives (tested against the linear pass). The branches
// become masks: a comparison involving a number that is not a number is false in both, so such
// a lane goes the same way. Each lane divides once for the parameter its region clamps (by a, c,
// det or den), and t / det beside it for the inside; the other lanes' quotients are dropped.
inline void nearestpair(const double *const tri[2][3], __m128d px, __m128d py, __m128d pz, double dd[2],
                        double x[2][3]) {
  auto load = [&](int corner, int k) { return _mm_loadh_pd(_mm_load_sd(tri[0][corner] + k), tri[1][corner] + k); };
  auto pick = [](__m128d m, __m128d a, __m128d b) { return _mm_or_pd(_mm_and_pd(m, a), _mm_andnot_pd(m, b)); };
  auto dot = [](__m128d a0, __m128d a1, __m128d a2, __m128d b0, __m128d b1, __m128d b2) {
    return _mm_add_pd(_mm_add_pd(_mm_mul_pd(a0, b0), _mm_mul_pd(a1, b1)), _mm_mul_pd(a2, b2));
  };
  const __m128d zero = _mm_setzero_pd(), one = _mm_set1_pd(1.0), sign = _mm_set1_pd(-0.0);
  const __m128d c0 = load(0, 0), c1 = load(0, 1), c2 = load(0, 2);
  const __m128d u0 = _mm_sub_pd(load(1, 0), c0), u1 = _mm_sub_pd(load(1, 1), c1), u2 = _mm_sub_pd(load(1, 2), c2);
  const __m128d v0 = _mm_sub_pd(load(2, 0), c0), v1 = _mm_sub_pd(load(2, 1), c1), v2 = _mm_sub_pd(load(2, 2), c2);
  const __m128d a = dot(u0, u1, u2, u0, u1, u2), b = dot(u0, u1, u2, v0, v1, v2), c = dot(v0, v1, v2, v0, v1, v2);
  const __m128d det = _mm_andnot_pd(sign, _mm_sub_pd(_mm_mul_pd(a, c), _mm_mul_pd(b, b)));
  const __m128d den = _mm_add_pd(_mm_sub_pd(a, _mm_mul_pd(_mm_set1_pd(2.0), b)), c);
  const __m128d dx = _mm_sub_pd(c0, px), dy = _mm_sub_pd(c1, py), dz = _mm_sub_pd(c2, pz);
  const __m128d d = dot(u0, u1, u2, dx, dy, dz), e = dot(v0, v1, v2, dx, dy, dz);
  const __m128d s = _mm_sub_pd(_mm_mul_pd(b, e), _mm_mul_pd(c, d));
  const __m128d t = _mm_sub_pd(_mm_mul_pd(b, d), _mm_mul_pd(a, e));
  // The regions: within (s + t <= det) or beyond the far edge, each split by the signs of s, t.
  const __m128d within = _mm_cmple_pd(_mm_add_pd(s, t), det);
  const __m128d sneg = _mm_cmplt_pd(s, zero), tneg = _mm_cmplt_pd(t, zero), dneg = _mm_cmplt_pd(d, zero);
  const __m128d beyond = _mm_andnot_pd(within, _mm_castsi128_pd(_mm_set1_epi32(-1)));
  const __m128d bs = _mm_and_pd(beyond, sneg), bt = _mm_andnot_pd(sneg, _mm_and_pd(beyond, tneg));
  const __m128d bn = _mm_andnot_pd(sneg, _mm_andnot_pd(tneg, beyond));
  const __m128d xs = _mm_add_pd(b, d), ys = _mm_add_pd(c, e), xt = _mm_add_pd(b, e), yt = _mm_add_pd(a, d);
  const __m128d nn = _mm_sub_pd(_mm_sub_pd(_mm_add_pd(c, e), b), d);
  const __m128d gs = _mm_cmpgt_pd(ys, xs), gt = _mm_cmpgt_pd(yt, xt), corner3 = _mm_and_pd(bn, _mm_cmple_pd(nn, zero));
  // t = 0, s = q(-d / a); s = 0, t = q(-e / c); inside; s = q(...) and t = 1 - s on the far edge
  // (from s < 0 or from neither); t = q(...) and s = 1 - t on it (from t < 0).
  const __m128d qa =
      _mm_or_pd(_mm_and_pd(within, _mm_or_pd(_mm_and_pd(sneg, _mm_and_pd(tneg, dneg)), _mm_andnot_pd(sneg, tneg))),
                _mm_andnot_pd(gt, bt));
  const __m128d qc = _mm_or_pd(_mm_and_pd(within, _mm_andnot_pd(_mm_and_pd(tneg, dneg), sneg)), _mm_andnot_pd(gs, bs));
  const __m128d inside = _mm_andnot_pd(sneg, _mm_andnot_pd(tneg, within));
  const __m128d edges = _mm_or_pd(_mm_and_pd(bs, gs), _mm_andnot_pd(corner3, bn)), edget = _mm_and_pd(bt, gt);
  const __m128d num =
      pick(qa, _mm_xor_pd(d, sign),
           pick(qc, _mm_xor_pd(e, sign),
                pick(inside, s, pick(_mm_and_pd(bs, gs), _mm_sub_pd(ys, xs), pick(edget, _mm_sub_pd(yt, xt), nn)))));
  const __m128d q0 = _mm_div_pd(num, pick(qa, a, pick(qc, c, pick(inside, det, den))));
  const __m128d q = pick(inside, q0, pick(_mm_cmplt_pd(q0, zero), zero, pick(_mm_cmpgt_pd(q0, one), one, q0)));
  const __m128d tin = _mm_div_pd(t, det), q1 = _mm_sub_pd(one, q);
  const __m128d ss = _mm_or_pd(_mm_and_pd(_mm_or_pd(_mm_or_pd(qa, inside), edges), q), _mm_and_pd(edget, q1));
  const __m128d ts = _mm_or_pd(_mm_or_pd(_mm_and_pd(_mm_or_pd(qc, edget), q), _mm_and_pd(inside, tin)),
                               _mm_or_pd(_mm_and_pd(edges, q1), _mm_and_pd(corner3, one)));
  const __m128d x0 = _mm_add_pd(_mm_add_pd(c0, _mm_mul_pd(ss, u0)), _mm_mul_pd(ts, v0));
  const __m128d x1 = _mm_add_pd(_mm_add_pd(c1, _mm_mul_pd(ss, u1)), _mm_mul_pd(ts, v1));
  const __m128d x2 = _mm_add_pd(_mm_add_pd(c2, _mm_mul_pd(ss, u2)), _mm_mul_pd(ts, v2));
  const __m128d r0 = _mm_sub_pd(x0, px), r1 = _mm_sub_pd(x1, py), r2 = _mm_sub_pd(x2, pz);
  _mm_storeu_pd(dd, dot(r0, r1, r2, r0, r1, r2));
  _mm_storel_pd(&x[0][0], x0), _mm_storel_pd(&x[0][1], x1), _mm_storel_pd(&x[0][2], x2);
  _mm_storeh_pd(&x[1][0], x0), _mm_storeh_pd(&x[1][1], x1), _mm_storeh_pd(&x[1][2], x2);
}

// The best triangle so far by its place k in the leaf order: the smallest D, of equal D the
// first in file order; a D that is not a number or is infinite is never taken (none beats the
// start of +infinity).
struct Best {
  double d = std::numeric_limits<double>::infinity();
  int32_t k = -1;
  double x[3] = {0, 0, 0};
  void take(double dd, const double *y, int32_t k0, const int32_t *fileindex) {
    if (dd < d || (k >= 0 && dd == d && fileindex[k0] < fileindex[k])) {
      d = dd;
      k = k0;
      x[0] = y[0];
      x[1] = y[1];
      x[2] = y[2];
    }
  }
};

// The layout of a leaf block (see WideNode): the words of its head, and the whole block.
constexpr int32_t headwords(int32_t ntri) { return (5 + 3 * ntri + 7) / 8; }
constexpr int32_t blockwords(int32_t ntri, int32_t ncorners) { return headwords(ntri) + 3 * ncorners; }

// Side q of axis k of a child's box. q * step is exact (8 bits times 24), so the sum is the one
// rounding, the same wherever it is worked out, fused or not.
inline double side(const WideNode &n, int k, unsigned q) { return double(n.origin[k]) + double(q) * double(n.step[k]); }

// Squared distances from a point to the boxes of the four children (0 inside, not a number
// when the node's box is not finite), two children to a register; each side is side() to the
// bit.
inline void childdistances(const WideNode &n, const double *p, double *out) {
  const __m128i zero = _mm_setzero_si128();
  __m128d sum01 = _mm_setzero_pd(), sum23 = _mm_setzero_pd();
  for (int k = 0; k < 3; ++k) {
    const __m128d o = _mm_set1_pd(double(n.origin[k])), step = _mm_set1_pd(double(n.step[k]));
    const __m128d pk = _mm_set1_pd(p[k]);
    int32_t lo4, hi4;
    std::memcpy(&lo4, n.lo[k], 4);
    std::memcpy(&hi4, n.hi[k], 4);
    const __m128i lo = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(lo4), zero), zero);
    const __m128i hi = _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(hi4), zero), zero);
    // Of lo - p and p - hi at most one is positive; maxpd returns its second operand when one is
    // not a number, so such a difference is kept.
    auto gap = [&](__m128i l, __m128i h) {
      const __m128d sl = _mm_add_pd(o, _mm_mul_pd(_mm_cvtepi32_pd(l), step));
      const __m128d sh = _mm_add_pd(o, _mm_mul_pd(_mm_cvtepi32_pd(h), step));
      const __m128d g = _mm_add_pd(_mm_max_pd(_mm_setzero_pd(), _mm_sub_pd(sl, pk)),
                                   _mm_max_pd(_mm_setzero_pd(), _mm_sub_pd(pk, sh)));
      return _mm_mul_pd(g, g);
    };
    sum01 = _mm_add_pd(sum01, gap(lo, hi));
    sum23 = _mm_add_pd(sum23, gap(_mm_shuffle_epi32(lo, 0xEE), _mm_shuffle_epi32(hi, 0xEE)));
  }
  _mm_storeu_pd(out, sum01);
  _mm_storeu_pd(out + 2, sum23);
}

// Starts loading what a pushed child will read when it is taken: its node, or its leaf block.
inline void prefetch(int32_t child, const WideNode *nodes, const double *leaves) {
  if (child > 0) {
    __builtin_prefetch(nodes + child);
  } else {
    const int32_t code = -1 - child;
    const double *p = leaves + 8 * static_cast<size_t>(code >> 4);
    for (int32_t l = 0; l < (code & 15); ++l) __builtin_prefetch(p + 8 * l);
  }
}

// Why a skip can never lose the winner. A computed X lies within a few units in the last place
// of its exact counterpart, which lies (up to the same rounding of s + t) on the triangle: every
// coordinate is off by less than 40 eps M, M the largest magnitude of any corner coordinate.
// Triangle boxes are grown by 64 eps M and rounded outwards to single precision, node boxes
// hold their triangles' boxes, and quantized child boxes are rounded outwards again, so every
// computed X lies in every box above its triangle, and the exact distance of such a box is at
// most the exact |X - P|^2. The computed D is at least that exact value times (1 - 6 eps), the
// computed box distance at most the exact one times (1 + 6 eps). A box is therefore skipped only
// when its computed distance times (1 - 2^-40), far below those factors, is still above the
// best D: then every D it holds is above the best as well, and ties are never skipped.
constexpr double shrink = 1.0 - 0x1p-40;
constexpr int leafsize = 4;
constexpr int maxdepth = 60;
// Past maxdepth, middle cuts add at most 32 levels. Going straight down, a node pushes at most
// four children and the one taken next is among them, so a descent from any height adds at most
// `descent` entries. The search goes straight down whenever the stack is above `roomy` (see
// closestpoint), and until then each of the `lag` entries it holds back pushes four at most.
constexpr unsigned lag = 3;
constexpr int descent = 4 * (maxdepth + 32) + 4;
constexpr int roomy = descent;
constexpr int stacksize = roomy + 4 * static_cast<int>(lag) + descent;
static_assert((blockwords(leafsize, 3 * leafsize) + 7) / 8 < 16, "a block's lines fit in 4 bits");

// Single-precision bounds of v. They are never subnormal: where denormals count as zero (as in
// the warp), a subnormal bound would read as zero and could cut into the box; such a bound goes
// out to the nearest normal value or zero instead. Subnormals are told by their bits, since
// comparisons too see them as zero.
bool subnormal(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  return (bits & 0x7f800000u) == 0 && (bits & 0x007fffffu) != 0;
}
float floatbelow(double v) {
  float f = static_cast<float>(v);
  if (static_cast<double>(f) > v) f = std::nextafter(f, -std::numeric_limits<float>::infinity());
  if (subnormal(f)) f = std::signbit(f) ? -std::numeric_limits<float>::min() : 0.0f;
  return f;
}
float floatabove(double v) {
  float f = static_cast<float>(v);
  if (static_cast<double>(f) < v) f = std::nextafter(f, std::numeric_limits<float>::infinity());
  if (subnormal(f)) f = std::signbit(f) ? -0.0f : std::numeric_limits<float>::min();
  return f;
}

}  // namespace

void closestpointlinear(const double *query, double *out, const QuerySet &set) {
  const double px = query[0], py = query[1], pz = query[2];
  // Every triangle in file order; a later one is taken only when strictly nearer.
  out[0] = px, out[1] = py, out[2] = pz;
  double best = std::numeric_limits<double>::infinity();
  const double *c = set.corners.data();
  const int32_t nt = std::min(set.ntri, static_cast<int32_t>(set.corners.size() / 9));
  for (int32_t t = 0; t < nt; ++t, c += 9) {
    double x[3];
    const double d = nearest(c, c + 3, c + 6, px, py, pz, x);
    if (d < best) {
      best = d;
      out[0] = x[0], out[1] = x[1], out[2] = x[2];
    }
  }
}

namespace {

// One query's search of the hierarchy: the children still to visit, each with the lower bound of
// its distance (looked at again when it is reached, since the best may have improved meanwhile).
struct Search {
  const WideNode *nodes;
  const int32_t *fileindex;
  const double *leaves;
  double p[3];
  __m128d px, py, pz;
  Best best;
  int top = 0;
  int32_t stack[stacksize];
  double bound[stacksize];

  Search(const double *query, const QuerySet &set)
      : nodes(set.nodes.data()),
        fileindex(set.fileindex.data()),
        leaves(set.leaves.data()),
        p{query[0], query[1], query[2]},
        px(_mm_set1_pd(query[0])),
        py(_mm_set1_pd(query[1])),
        pz(_mm_set1_pd(query[2])) {
    stack[top] = 0;
    bound[top++] = 0.0;
  }

  // Takes the next child not beyond the best off the stack; false when none is left.
  bool pop(int32_t &ref, double &b) {
    while (top > 0) {
      --top;
      if (bound[top] * shrink > best.d) continue;
      ref = stack[top];
      b = bound[top];
      return true;
    }
    return false;
  }

  // A leaf: its triangles two by two (the last one twice when they are odd, offered once).
  void leaf(int32_t ref) {
    const int32_t code = -1 - ref;
    const double *block = leaves + 8 * static_cast<size_t>(code >> 4);
    const unsigned char *head = reinterpret_cast<const unsigned char *>(block);
    int32_t place;
    std::memcpy(&place, head, sizeof place);
    const int32_t nt = head[4];
    const double *corner = block + headwords(nt);
    for (int32_t j = 0; j < nt; j += 2) {
      const unsigned char *n0 = head + 5 + 3 * j, *n1 = j + 1 < nt ? n0 + 3 : n0;
      const double *const tri[2][3] = {{corner + 3 * n0[0], corner + 3 * n0[1], corner + 3 * n0[2]},
                                       {corner + 3 * n1[0], corner + 3 * n1[1], corner + 3 * n1[2]}};
      double dd[2], x[2][3];
      nearestpair(tri, px, py, pz, dd, x);
      best.take(dd[0], x[0], place + j, fileindex);
      if (j + 1 < nt) best.take(dd[1], x[1], place + j + 1, fileindex);
    }
  }

  // An inner node: the children not beyond the best, pushed farthest first so that the nearest
  // is taken next, and their memory asked for.
  void node(int32_t ref) {
    const WideNode &n = nodes[ref];
    int32_t take[4];
    double dist[4], all[4];
    int m = 0;
    childdistances(n, p, all);
    for (int j = 0; j < 4; ++j) {
      if (n.child[j] == 0) continue;
      const double d = all[j];
      if (d * shrink > best.d) continue;
      int i = m++;
      for (; i > 0 && dist[i - 1] < d; --i) {
        dist[i] = dist[i - 1];
        take[i] = take[i - 1];
      }
      dist[i] = d;
      take[i] = n.child[j];
    }
    for (int i = 0; i < m; ++i) {
      stack[top] = take[i];
      bound[top++] = dist[i];
      prefetch(take[i], nodes, leaves);
    }
  }

  void visit(int32_t ref) {
    if (ref < 0)
      leaf(ref);
    else
      node(ref);
  }
};

}  // namespace

void closestpoint(const double *query, double *out, const QuerySet &set) {
  if (set.nodes.empty()) {
    closestpointlinear(query, out, set);
    return;
  }
  Search search(query, set);
  int32_t ref;
  double b;
  // Straight down, nearest child first, until a leaf has given a best.
  while (search.best.k < 0 && search.pop(ref, b)) search.visit(ref);
  // Then an entry taken off the stack waits while the `lag` - 1 taken before it are visited, so
  // that its memory (asked for when it was pushed) has time to arrive. Any order of visits finds
  // the same triangle (the smallest D, then the first in file order, and no skip can lose it),
  // so this changes the time only. Above `roomy` nothing is held back: straight down again.
  int32_t waiting[lag];
  double waitbound[lag];
  unsigned first = 0, count = 0;
  for (;;) {
    while (count < lag && search.top <= roomy && search.pop(ref, b)) {
      waiting[(first + count) % lag] = ref;
      waitbound[(first + count) % lag] = b;
      ++count;
    }
    if (count == 0) {
      if (!search.pop(ref, b)) break;
      search.visit(ref);
      continue;
    }
    ref = waiting[first];
    b = waitbound[first];
    first = (first + 1) % lag;
    --count;
    if (b * shrink > search.best.d) continue;
    search.visit(ref);
  }
  const double *x = search.best.k < 0 ? search.p : search.best.x;
  out[0] = x[0], out[1] = x[1], out[2] = x[2];
}

void *indexmemory(size_t bytes) {
  constexpr size_t huge = size_t{2} << 20;
  if (bytes >= 2 * huge) {
    const size_t whole = (bytes + huge - 1) / huge * huge;
    void *p = std::aligned_alloc(huge, whole);
    if (!p) throw std::bad_alloc();
    madvise(p, whole, MADV_HUGEPAGE);  // advice only: without huge pages nothing else changes
    return p;
  }
  return ::operator new (bytes, std::align_val_t{64});
}

void freeindexmemory(void *p, size_t bytes) {
  if (bytes >= 2 * (size_t{2} << 20))
    std::free(p);
  else
    ::operator delete (p, std::align_val_t{64});
}

QuerySet makequeryset(std::vector<double> &&corners, int32_t ntri, const double box[6]) {
  QuerySet set;
  set.ntri = std::max(ntri, int32_t{0});
  set.nvrt = 3 * set.ntri;
  for (int k = 0; k < 6; ++k) set.bbox[k] = box[k];
  set.corners = std::move(corners);
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

// A node of the binary tree the index is built from: its box; an inner node (count == 0) has
// its children at nodes[first] and nodes[first + 1], a leaf holds items[first, first + count).
struct BoxNode {
  float lo[3], hi[3];
  int32_t first, count;
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

// Writes the leaf blocks in the order of the tree (the order of the items) and returns, for
// each leaf of the binary tree, the child entry that points at its block. A corner shared by
// triangles of one leaf is stored once: equal means equal bits, so every triangle reads exactly
// the coordinates of the file.
std::vector<int32_t> packleaves(QuerySet &set, const std::vector<Item> &items, const NodeVec &tree) {
  const size_t nt = items.size();
  std::vector<int32_t> leafat(nt, -1);  // the leaf starting at item k
  for (size_t i = 0; i < tree.size(); ++i)
    if (tree[i].count > 0) leafat[static_cast<size_t>(tree[i].first)] = static_cast<int32_t>(i);
  std::vector<int32_t> order;
  order.reserve(nt / 2 + 1);
  for (int32_t i : leafat)
    if (i >= 0) order.push_back(i);
  release(leafat);
  const int32_t nleaves = static_cast<int32_t>(order.size());
  auto leaf = [&](int32_t l) -> const BoxNode & { return tree[static_cast<size_t>(order[static_cast<size_t>(l)])]; };
  auto corner = [&](size_t k, size_t c) { return set.corners.data() + 9 * static_cast<size_t>(items[k].t) + 3 * c; };

  // Each triangle's corner numbers within its leaf, and each leaf's count of cache lines.
  std::vector<unsigned char> cornerno(3 * nt);
  std::vector<int64_t> start(static_cast<size_t>(nleaves) + 1, 0);
#pragma omp parallel for schedule(static)
  for (int32_t l = 0; l < nleaves; ++l) {
    const BoxNode &n = leaf(l);
    const double *distinct[3 * leafsize];
    int32_t nd = 0;
    for (size_t k = static_cast<size_t>(n.first); k < static_cast<size_t>(n.first + n.count); ++k)
      for (size_t c = 0; c < 3; ++c) {
        const double *p = corner(k, c);
        int32_t j = 0;
        while (j < nd && std::memcmp(distinct[j], p, 3 * sizeof(double)) != 0) ++j;
        if (j == nd) distinct[nd++] = p;
        cornerno[3 * k + c] = static_cast<unsigned char>(j);
      }
    start[static_cast<size_t>(l) + 1] = (blockwords(n.count, nd) + 7) / 8;
  }
  for (size_t l = 0; l < static_cast<size_t>(nleaves); ++l) start[l + 1] += start[l];
  if (start.back() >= (int64_t{1} << 27)) throw std::bad_alloc();  // lines must fit a child entry

  std::vector<int32_t> ref(tree.size(), 0);
  set.leaves.assign(8 * static_cast<size_t>(start.back()), 0.0);
  set.fileindex.resize(nt);
#pragma omp parallel for schedule(static)
  for (int32_t l = 0; l < nleaves; ++l) {
    const BoxNode &n = leaf(l);
    const size_t begin = static_cast<size_t>(n.first), count = static_cast<size_t>(n.count);
    const int64_t line = start[static_cast<size_t>(l)], lines = start[static_cast<size_t>(l) + 1] - line;
    unsigned char *head = reinterpret_cast<unsigned char *>(set.leaves.data() + 8 * line);
    const int32_t place = n.first;
    std::memcpy(head, &place, sizeof place);
    head[4] = static_cast<unsigned char>(count);
    std::memcpy(head + 5, cornerno.data() + 3 * begin, 3 * count);
    double *out = set.leaves.data() + 8 * line + headwords(n.count);
    for (size_t k = begin; k < begin + count; ++k) {
      set.fileindex[k] = items[k].t;
      for (size_t c = 0; c < 3; ++c) std::memcpy(out + 3 * cornerno[3 * k + c], corner(k, c), 3 * sizeof(double));
    }
    ref[static_cast<size_t>(order[static_cast<size_t>(l)])] = static_cast<int32_t>(-1 - (line * 16 + lines));
  }
  return ref;
}

// The quantized box of a child within node n (see WideNode), rounded outwards by the very
// arithmetic of the queries.
void quantize(WideNode &n, int j, const BoxNode &box) {
  for (int k = 0; k < 3; ++k) {
    unsigned lo = 0, hi = 0;
    if (n.step[k] > 0) {
      const double span = double(n.step[k]);
      lo = static_cast<unsigned>(std::clamp(std::floor((double(box.lo[k]) - n.origin[k]) / span), 0.0, 255.0));
      hi = static_cast<unsigned>(std::clamp(std::ceil((double(box.hi[k]) - n.origin[k]) / span), 0.0, 255.0));
      while (lo > 0 && side(n, k, lo) > box.lo[k]) --lo;
      while (hi < 255 && side(n, k, hi) < box.hi[k]) ++hi;
    }
    n.lo[k][j] = static_cast<uint8_t>(lo);
    n.hi[k][j] = static_cast<uint8_t>(hi);
  }
}

// The origin and steps of a node with the given box: side 255 reaches the top of the box.
void setframe(WideNode &n, const BoxNode &box) {
  bool finite = true;
  for (int k = 0; k < 3; ++k) finite = finite && std::isfinite(box.lo[k]) && std::isfinite(box.hi[k]);
  for (int k = 0; k < 3; ++k) {
    if (!finite) {
      n.origin[k] = 0.0f;
      n.step[k] = std::numeric_limits<float>::quiet_NaN();
      continue;
    }
    n.origin[k] = box.lo[k];
    n.step[k] = floatabove((double(box.hi[k]) - double(box.lo[k])) / 255.0);
    while (side(n, k, 255) < box.hi[k]) n.step[k] = std::nextafter(n.step[k], finf);
  }
}

// The four-way tree: each node takes the children of a binary node and keeps opening the
// largest inner one among them until it has four.
void collapse(QuerySet &set, const NodeVec &tree, const std::vector<int32_t> &ref) {
  auto area = [](const BoxNode &b) {
    const double x = double(b.hi[0]) - b.lo[0], y = double(b.hi[1]) - b.lo[1], z = double(b.hi[2]) - b.lo[2];
    return x * y + y * z + z * x;
  };
  set.nodes.reserve(tree.size() / 3 + 2);
  set.nodes.emplace_back();
  std::vector<std::pair<int32_t, int32_t>> todo{{0, 0}};  // binary node, its four-way node
  while (!todo.empty()) {
    const auto [b, w] = todo.back();
    todo.pop_back();
    int32_t kids[4];
    int nk = 0;
    if (tree[static_cast<size_t>(b)].count > 0) {
      kids[nk++] = b;  // a root that is a leaf
    } else {
      kids[nk++] = tree[static_cast<size_t>(b)].first;
      kids[nk++] = tree[static_cast<size_t>(b)].first + 1;
    }
    while (nk < 4) {
      int open = -1;
      double largest = -1.0;
      for (int i = 0; i < nk; ++i) {
        const BoxNode &c = tree[static_cast<size_t>(kids[i])];
        const double a = area(c);
        if (c.count == 0 && (open < 0 || a > largest)) open = i, largest = a;
      }
      if (open < 0) break;
      const int32_t first = tree[static_cast<size_t>(kids[open])].first;
      for (int i = nk; i > open + 1; --i) kids[i] = kids[i - 1];
      kids[open] = first;
      kids[open + 1] = first + 1;
      ++nk;
    }
    WideNode n{};
    setframe(n, tree[static_cast<size_t>(b)]);
    for (int j = 0; j < nk; ++j) {
      const BoxNode &c = tree[static_cast<size_t>(kids[j])];
      quantize(n, j, c);
      if (c.count > 0) {
        n.child[j] = ref[static_cast<size_t>(kids[j])];
      } else {
        n.child[j] = static_cast<int32_t>(set.nodes.size());
        set.nodes.emplace_back();
        todo.push_back({kids[j], n.child[j]});
      }
    }
    set.nodes[static_cast<size_t>(w)] = n;
  }
}

}  // namespace

void buildindex(QuerySet &set) {
  const int32_t nt = std::max(set.ntri, int32_t{0});
  release(set.nodes);
  release(set.leaves);
  release(set.fileindex);
  if (nt == 0 || set.corners.size() < 9 * static_cast<size_t>(nt)) return;
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
        // A subnormal centre goes to zero whether or not this thread flushes it.
        const float mid = static_cast<float>(0.5 * lo + 0.5 * hi);
        it.mid[k] = bad ? 0.0f : subnormal(mid) ? std::copysign(0.0f, mid) : mid;
      }
      it.t = t;
    }

    // The top of the tree is split here, down to ranges of a fixed size; those are built side by
    // side and joined in their order, so the tree never depends on the number of threads.
    constexpr int32_t piece = 1 << 15;
    NodeVec nodes;
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
        local.reserve(
            static_cast<size_t>((pieces[static_cast<size_t>(p)].end - pieces[static_cast<size_t>(p)].begin) / 2 + 2));
        local.emplace_back();
        local.emplace_back();
        buildtree(items.data(),
                  {0, pieces[static_cast<size_t>(p)].begin, pieces[static_cast<size_t>(p)].end,
                   pieces[static_cast<size_t>(p)].depth},
                  local);
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

    const std::vector<int32_t> ref = packleaves(set, items, nodes);
    collapse(set, nodes, ref);
  } catch (const std::bad_alloc &) {
    release(set.nodes);
    release(set.leaves);
    release(set.fileindex);
    checkalloc(1, "closestpoint, index, 1");
  }
}

}  // namespace wf
