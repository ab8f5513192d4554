// SPDX-License-Identifier: GPL-2.0-or-later
// Adaptive refinement: the edge walk, the split of one edge into its halves and cross edges,
// and the growable vertex, triangle and edge lists.
#include "warp/refine.h"

#include <algorithm>
#include <cmath>

#include "control/messages.h"
#include "surface/sortkit.h"
#include "warp/warpstl.h"

namespace wf {

namespace {

// Replaces v by a fresh array of rows x newcap entries holding the old entries in front.
template <class T>
void regrow(RunState &rs, std::vector<T> &v, size_t rows, int32_t newcap, const char *label) {
  std::vector<T> tmp;
  allocate(tmp, rows * static_cast<size_t>(newcap), label);
  std::copy_n(v.begin(), std::min(v.size(), tmp.size()), tmp.begin());
  v.swap(tmp);
}

inline size_t col(int32_t n) { return static_cast<size_t>(n - 1); }

}  // namespace

int32_t growcap(int32_t cap) {
  const float product = 1.2f * static_cast<float>(cap);
  const double up = std::ceil(static_cast<double>(product));
  if (up >= 2147483647.0) return 2147483647;
  return static_cast<int32_t>(up);
}

void pushvrt(RunState &rs, const double *before, const double *after) {
  if (rs.mesh.nvrt + 1 > rs.vrtcap) {
    const int32_t cap = std::max(growcap(rs.vrtcap), rs.mesh.nvrt + 1);
    regrow(rs, rs.mesh.prewarp, 3, cap, "pushvrt, tmp, 1");
    regrow(rs, rs.mesh.vrt, 3, cap, "pushvrt, tmp, 2");
    rs.vrtcap = cap;
  }
  const size_t base = 3 * static_cast<size_t>(rs.mesh.nvrt);
  for (int c = 0; c < 3; ++c) {
    rs.mesh.prewarp[base + c] = before[c];
    rs.mesh.vrt[base + c] = after[c];
  }
  ++rs.mesh.nvrt;
}

void pushtri(RunState &rs, const int32_t *corners, int32_t t) {
  if (rs.mesh.ntri + 1 > rs.tricap) {
    const int32_t cap = std::max(growcap(rs.tricap), rs.mesh.ntri + 1);
    regrow(rs, rs.mesh.tri, 3, cap, "pushtri, tmp, 1");
    regrow(rs, rs.triactive, 1, cap, "pushtri, ltmp, 1");
    rs.tricap = cap;
  }
  const size_t base = 3 * col(t);
  for (int c = 0; c < 3; ++c) rs.mesh.tri[base + c] = corners[c];
  rs.triactive[col(t)] = 1;
  ++rs.mesh.ntri;
}

void pushedge(RunState &rs, const int32_t *verts, const int32_t *opposites,
              const int32_t *triangles, int32_t e, int32_t level, const int32_t *neighbours) {
  if (rs.edges.n + 1 > rs.edges.cap) {
    // The incremented count is scaled here, not the old capacity.
    const int32_t cap = std::max(growcap(rs.edges.n + 1), rs.edges.n + 1);
    regrow(rs, rs.edges.vrt, 2, cap, "pushedge, tmp, 1");
    regrow(rs, rs.edges.tri, 2, cap, "pushedge, tmp, 2");
    regrow(rs, rs.edges.opp, 2, cap, "pushedge, tmp, 3");
    regrow(rs, rs.edges.nbr, 4, cap, "pushedge, tmp, 4");
    regrow(rs, rs.edges.len, 1, cap, "pushedge, dtmp, 1");
    regrow(rs, rs.edges.level, 1, cap, "pushedge, tmp1, 1");
    rs.edges.cap = cap;
  }
  const size_t ce = col(e);
  rs.edges.vrt[2 * ce] = verts[0];
  rs.edges.vrt[2 * ce + 1] = verts[1];
  rs.edges.opp[2 * ce] = opposites[0];
  rs.edges.opp[2 * ce + 1] = opposites[1];
  rs.edges.tri[2 * ce] = triangles[0];
  rs.edges.tri[2 * ce + 1] = triangles[1];
  for (int k = 0; k < 4; ++k) rs.edges.nbr[4 * ce + k] = neighbours[k];
  double len = 0.0;
  if (verts[0] >= 1 && verts[1] >= 1) {
    const double *p = rs.mesh.vrt.data() + 3 * col(verts[0]);
    const double *q = rs.mesh.vrt.data() + 3 * col(verts[1]);
    const double dx = q[0] - p[0], dy = q[1] - p[1], dz = q[2] - p[2];
    len = std::sqrt(dx * dx + dy * dy + dz * dz);
  }
  rs.edges.len[ce] = len;
  rs.edges.level[ce] = level;
  ++rs.edges.n;
}

void splitedge(RunState &rs, int32_t e, const double *midbefore, const double *midafter,
               int32_t level) {
  const size_t ce = col(e);
  const int32_t a = rs.edges.vrt[2 * ce], b = rs.edges.vrt[2 * ce + 1];
  const int32_t t1 = rs.edges.tri[2 * ce], t2 = rs.edges.tri[2 * ce + 1];
  const int32_t c = rs.edges.opp[2 * ce], d = rs.edges.opp[2 * ce + 1];
  // Local order round the diamond: a-c, c-b, d-a, b-d (the stored slots 3 and 4 swap here).
  const int32_t nb[4] = {rs.edges.nbr[4 * ce], rs.edges.nbr[4 * ce + 1], rs.edges.nbr[4 * ce + 3],
                         rs.edges.nbr[4 * ce + 2]};

  int32_t ed[4], ft[4];
  if (d != 0) {
    for (int k = 0; k < 4; ++k) {
      ed[k] = rs.edges.n + 1 + k;
      ft[k] = rs.mesh.ntri + 1 + k;
    }
  } else {
    for (int k = 0; k < 3; ++k) ed[k] = rs.edges.n + 1 + k;
    ed[3] = 0;
    ft[0] = rs.mesh.ntri + 1;
    ft[1] = rs.mesh.ntri + 2;
    ft[2] = ft[3] = 0;
  }

  pushvrt(rs, midbefore, midafter);
  const int32_t m = rs.mesh.nvrt;

  // The neighbours now border the new triangles and the new vertex. Per neighbour i: what e
  // becomes (half edge), its partner neighbour, and what the partner becomes (cross edge).
  const int32_t half[4] = {ed[0], ed[1], ed[0], ed[1]};
  const int32_t partner[4] = {nb[1], nb[0], nb[3], nb[2]};
  const int32_t cross[4] = {ed[2], ed[2], ed[3], ed[3]};
  const int nside = d != 0 ? 4 : 2;
  for (int i = 0; i < nside; ++i) {
    const int32_t ni = nb[i];
    if (ni < 1) continue;  // a slot that names no edge (only on a surface that is not closed)
    const size_t cn = col(ni);
    if (rs.edges.tri[2 * cn] == t1 || rs.edges.tri[2 * cn] == t2)
      rs.edges.tri[2 * cn] = ft[i];
    else
      rs.edges.tri[2 * cn + 1] = ft[i];
    if (rs.edges.opp[2 * cn] == a || rs.edges.opp[2 * cn] == b)
      rs.edges.opp[2 * cn] = m;
    else
      rs.edges.opp[2 * cn + 1] = m;
    for (int k = 0; k < 4; ++k) {
      int32_t &slot = rs.edges.nbr[4 * cn + k];
      if (slot == e)
        slot = half[i];
      else if (slot == partner[i])
        slot = cross[i];
    }
  }

  // On a boundary edge of the surface as read, T1 runs a, b, c and slots 1 and 2 hold its own
  // sides b-c and c-a. The two children then come out reversed and those two neighbours are
  // updated by slot as on an interior edge; that is how an open rim refines, and it stays so.
  const int32_t f1[3] = {a, c, m}, f2[3] = {c, b, m};
  pushtri(rs, f1, ft[0]);
  pushtri(rs, f2, ft[1]);
  if (d != 0) {
    const int32_t f3[3] = {d, a, m}, f4[3] = {b, d, m};
    pushtri(rs, f3, ft[2]);
    pushtri(rs, f4, ft[3]);
  }

  const int32_t lv = level + 1;
  {
    const int32_t v[2] = {a, m}, o[2] = {c, d}, t[2] = {ft[0], ft[2]};
    const int32_t n[4] = {nb[0], ed[2], ed[3], nb[2]};
    pushedge(rs, v, o, t, ed[0], lv, n);
  }
  {
    const int32_t v[2] = {m, b}, o[2] = {c, d}, t[2] = {ft[1], ft[3]};
    const int32_t n[4] = {ed[2], nb[1], nb[3], ed[3]};
    pushedge(rs, v, o, t, ed[1], lv, n);
  }
  {
    const int32_t v[2] = {m, c}, o[2] = {a, b}, t[2] = {ft[0], ft[1]};
    const int32_t n[4] = {ed[0], nb[0], nb[1], ed[1]};
    pushedge(rs, v, o, t, ed[2], lv, n);
  }
  if (d != 0) {
    const int32_t v[2] = {d, m}, o[2] = {a, b}, t[2] = {ft[2], ft[3]};
    const int32_t n[4] = {nb[2], ed[0], ed[1], nb[3]};
    pushedge(rs, v, o, t, ed[3], lv, n);
  }

  if (t1 >= 1) rs.triactive[col(t1)] = 0;
  if (d != 0 && t2 >= 1) rs.triactive[col(t2)] = 0;
}

void refinesurface(RunState &rs, double *dist2, int32_t *nodes, double *weights, int navg) {
  rs.rep.say("Refining STL edges ...");
  rs.rep.blank();

  // The arrays stand at their counts; the capacities start there.
  rs.vrtcap = rs.mesh.nvrt;
  rs.tricap = rs.mesh.ntri;
  rs.edges.cap = rs.edges.n;
  rs.mesh.vrt.resize(3 * static_cast<size_t>(rs.vrtcap));
  rs.mesh.prewarp.resize(3 * static_cast<size_t>(rs.vrtcap));
  rs.mesh.tri.resize(3 * static_cast<size_t>(rs.tricap));
  rs.edges.vrt.resize(2 * static_cast<size_t>(rs.edges.cap));
  rs.edges.tri.resize(2 * static_cast<size_t>(rs.edges.cap));
  rs.edges.opp.resize(2 * static_cast<size_t>(rs.edges.cap));
  rs.edges.nbr.resize(4 * static_cast<size_t>(rs.edges.cap));
  rs.edges.len.resize(static_cast<size_t>(rs.edges.cap));
  rs.edges.level.assign(static_cast<size_t>(rs.edges.cap), 0);
  rs.triactive.assign(static_cast<size_t>(rs.tricap), 1);

  const int32_t n0 = rs.edges.n;
  std::vector<int32_t> edgeorder(static_cast<size_t>(n0));
  dvecsort(rs.edges.len.data(), edgeorder.data(), n0);

  int32_t progressmark = rs.progressbase;
  for (int32_t i = 1; i <= rs.edges.n; ++i) {
    const int32_t e = i <= n0 ? edgeorder[static_cast<size_t>(n0 - i)] : i;

    const double share = rs.progressshare * 99.0 * i / rs.edges.n;
    int32_t p = rs.progressbase + static_cast<int32_t>(std::lround(share));
    if (p > 99) p = 99;
    if (p > progressmark) {
      rs.rep.progress(i, rs.edges.n, p);
      progressmark = p;
    }

    const size_t ce = col(e);
    if (rs.edges.level[ce] >= rs.settings.maxrefine) continue;
    const double len = rs.edges.len[ce];
    if (len <= rs.settings.minedge) continue;

    const int32_t a = rs.edges.vrt[2 * ce], b = rs.edges.vrt[2 * ce + 1];
    const double *pa = rs.mesh.prewarp.data() + 3 * col(a);
    const double *pb = rs.mesh.prewarp.data() + 3 * col(b);
    double before[3], after[3];
    for (int k = 0; k < 3; ++k) before[k] = 0.5 * (pa[k] + pb[k]);
    for (int k = 0; k < 3; ++k) after[k] = before[k];
    warpvertex(rs, after, dist2, nodes, weights, navg);

    bool split = len > rs.settings.maxedge;
    if (!split) {
      const double *wa = rs.mesh.vrt.data() + 3 * col(a);
      const double *wb = rs.mesh.vrt.data() + 3 * col(b);
      double dev = 0.0;
      for (int k = 0; k < 3; ++k) {
        const double mk = 0.5 * (wa[k] + wb[k]);
        const double dk = after[k] - mk;
        dev += dk * dk;
      }
      split = dev > rs.settings.refinetolsq();
    }
    if (split) splitedge(rs, e, before, after, rs.edges.level[ce]);
  }

  rs.rep.blank();
  int32_t alive = 0;
  for (int32_t t = 0; t < rs.mesh.ntri; ++t)
    if (rs.triactive[static_cast<size_t>(t)]) ++alive;
  rs.rep.say("Active triangles = " + inttext(alive));
  rs.rep.say("Total  triangles = " + inttext(rs.mesh.ntri));

  // Compaction: the live triangles in ascending order.
  {
    std::vector<int32_t> live(3 * static_cast<size_t>(alive));
    size_t w = 0;
    for (int32_t t = 0; t < rs.mesh.ntri; ++t) {
      if (!rs.triactive[static_cast<size_t>(t)]) continue;
      const int32_t *src = rs.mesh.tri.data() + 3 * static_cast<size_t>(t);
      live[w++] = src[0];
      live[w++] = src[1];
      live[w++] = src[2];
    }
    rs.mesh.tri.swap(live);
    rs.mesh.ntri = alive;
    rs.tricap = alive;
  }

  // Back to file units, then to output units; prewarpvertices keeps the STL scaling.
  const size_t nv = 3 * static_cast<size_t>(rs.mesh.nvrt);
  rs.mesh.vrt.resize(nv);
  rs.mesh.prewarp.resize(nv);
  rs.vrtcap = rs.mesh.nvrt;
  for (size_t k = 0; k < nv; ++k) rs.mesh.vrt[k] = rs.mesh.vrt[k] / rs.files.stlscale;
  for (size_t k = 0; k < nv; ++k) rs.mesh.vrt[k] = rs.mesh.vrt[k] * rs.settings.unitscale;
  for (size_t k = 0; k < nv; ++k) rs.mesh.prewarp[k] = rs.mesh.prewarp[k] * rs.settings.unitscale;

  rs.rep.say("Number of vertices = " + inttext(rs.mesh.nvrt));
}

}  // namespace wf
