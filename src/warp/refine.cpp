// SPDX-License-Identifier: GPL-3.0-or-later
#include "warp/refine.h"

#include <omp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/memory.h"
#include "surface/sortkit.h"
#include "warp/warpstl.h"

namespace wf {

namespace {

inline size_t col(int32_t n) { return static_cast<size_t>(n - 1); }

// The next capacity of a list that must hold at least `needed` entries.
int32_t nextcapacity(int32_t from, int32_t needed, const char *label) {
  const int32_t grown = growcapacity(from);
  if (grown <= 0) checkalloc(1, label);
  return std::max(grown, needed);
}

// What the walk's lists may hold together: a tenth of the machine's memory (with the midpoints
// computed ahead and the order of the initial edges the walk then holds about a sixth). A walk
// that would grow past it (a level limit in the millions on a surface that keeps splitting) ends
// in the list's own allocation message instead of the system's out-of-memory kill, which would
// come with no message and nothing written.
size_t listbudget() {
  static const size_t budget = [] {
    const long pages = sysconf(_SC_PHYS_PAGES), size = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? static_cast<size_t>(pages) / 10 * static_cast<size_t>(size)
                                 : std::numeric_limits<size_t>::max();
  }();
  return budget;
}

// The edge table's arrays given back (the walk keeps its edges as records meanwhile).
void releaseedges(EdgeTable &edges) {
  release(edges.vrt);
  release(edges.tri);
  release(edges.opp);
  release(edges.nbr);
  release(edges.len);
  release(edges.level);
}

// Replaces v by a fresh array of rows x newcap entries holding the old entries in front; inuse
// counts the bytes of all the walk's lists and takes the change.
template <class T>
void regrow(std::vector<T> &v, size_t rows, int32_t newcap, const char *label, size_t &inuse) {
  const size_t bytes = rows * static_cast<size_t>(newcap) * sizeof(T);
  if (inuse - v.size() * sizeof(T) + bytes > listbudget()) checkalloc(1, label);
  std::vector<T> tmp;
  allocate(tmp, rows * static_cast<size_t>(newcap), label);
  std::copy_n(v.begin(), std::min(v.size(), tmp.size()), tmp.begin());
  inuse = inuse - v.size() * sizeof(T) + bytes;
  v.swap(tmp);
}

// One edge of the walk, one cache line: its ends, triangles and opposite corners, the four
// neighbours round its diamond in stored order, its level and length.
struct alignas(64) WalkEdge {
  int32_t vrt[2], tri[2], opp[2], nbr[4];
  int32_t level;
  double len;
};

// The walk's edge records, in memory mapped from the system on whole pages: a regrowth moves the
// pages instead of copying them, and the new records are not cleared (each is written whole
// when pushed).
class EdgeRecords {
 public:
  EdgeRecords() = default;
  EdgeRecords(const EdgeRecords &) = delete;
  EdgeRecords &operator=(const EdgeRecords &) = delete;
  ~EdgeRecords() {
    if (p_) munmap(p_, bytes_);
  }
  WalkEdge *data() const { return static_cast<WalkEdge *>(p_); }
  // Room for cap records, the ones held kept; false when the system refuses it.
  bool grow(size_t cap) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGE_SIZE));
    const size_t bytes = (std::max<size_t>(cap, 1) * sizeof(WalkEdge) + page - 1) / page * page;
    if (bytes <= bytes_) return true;
    void *p = p_ ? mremap(p_, bytes_, bytes, MREMAP_MAYMOVE)
                 : mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) return false;
    p_ = p;
    bytes_ = bytes;
    return true;
  }

 private:
  void *p_ = nullptr;
  size_t bytes_ = 0;
};

// The walk's lists: the mesh, its edges and the live flags, with their capacities. The edges
// are taken from the table into records when the walk starts; the table's arrays are released.
class Walk {
 public:
  Walk(SurfaceMesh &mesh, EdgeTable &edges) : m_(mesh) {
    vrtcap_ = m_.nvrt;
    tricap_ = m_.ntri;
    nedge_ = edgecap_ = edges.n;
    m_.vrt.resize(3 * static_cast<size_t>(vrtcap_));
    m_.prewarp.resize(3 * static_cast<size_t>(vrtcap_));
    m_.tri.resize(3 * static_cast<size_t>(tricap_));
    const size_t ne = static_cast<size_t>(std::max(edgecap_, 0));
    if (!records_.grow(ne)) checkalloc(1, "pushedge, tmp, 1");
    WalkEdge *r = records_.data();
    for (size_t e = 0; e < ne; ++e) {
      for (int k = 0; k < 2; ++k) {
        r[e].vrt[k] = edges.vrt[2 * e + k];
        r[e].tri[k] = edges.tri[2 * e + k];
        r[e].opp[k] = edges.opp[2 * e + k];
      }
      for (int k = 0; k < 4; ++k) r[e].nbr[k] = edges.nbr[4 * e + k];
      r[e].level = 0;
      r[e].len = edges.len[e];
    }
    releaseedges(edges);
    active_.assign(static_cast<size_t>(tricap_), 1);
    // The lists are counted as the separate arrays of the edge table would take them (two ends,
    // two triangles, two opposite corners, four neighbours, a length and a level an edge), so
    // that the budget is passed where it always was.
    inuse_ = (m_.vrt.size() + m_.prewarp.size()) * sizeof(double) + m_.tri.size() * sizeof(int32_t) + active_.size() +
             ne * (10 * sizeof(int32_t) + sizeof(double) + sizeof(int32_t));
  }

  void splitedge(int32_t e, const double *midbefore, const double *midafter, int32_t level);
  std::vector<uint8_t> takeactive() { return std::move(active_); }
  const WalkEdge &edge(int32_t e) const { return records_.data()[col(e)]; }
  int32_t nedge() const { return nedge_; }
  // The counts of the edge list into the table; with keep also the edges as the walk leaves
  // them, in the table's arrays of the list's capacity (zero past the count).
  void leave(EdgeTable &edges, bool keep) const;

 private:
  void pushvrt(const double *before, const double *after);
  void pushtri(const int32_t *corners, int32_t t);
  void pushedge(const int32_t *verts, const int32_t *opposites, const int32_t *triangles, int32_t e, int32_t level,
                const int32_t *neighbours);
  void growedges();

  SurfaceMesh &m_;
  EdgeRecords records_;
  int32_t nedge_ = 0, edgecap_ = 0;
  int32_t vrtcap_ = 0, tricap_ = 0;
  std::vector<uint8_t> active_;
  size_t inuse_ = 0;  // bytes of all the lists
};

void Walk::pushvrt(const double *before, const double *after) {
  if (m_.nvrt + 1 > vrtcap_) {
    const int32_t cap = nextcapacity(vrtcap_, m_.nvrt + 1, "pushvrt, tmp, 1");
    regrow(m_.prewarp, 3, cap, "pushvrt, tmp, 1", inuse_);
    regrow(m_.vrt, 3, cap, "pushvrt, tmp, 2", inuse_);
    vrtcap_ = cap;
  }
  const size_t base = 3 * static_cast<size_t>(m_.nvrt);
  for (int c = 0; c < 3; ++c) {
    m_.prewarp[base + c] = before[c];
    m_.vrt[base + c] = after[c];
  }
  ++m_.nvrt;
}

void Walk::pushtri(const int32_t *corners, int32_t t) {
  if (m_.ntri + 1 > tricap_) {
    const int32_t cap = nextcapacity(tricap_, m_.ntri + 1, "pushtri, tmp, 1");
    regrow(m_.tri, 3, cap, "pushtri, tmp, 1", inuse_);
    regrow(active_, 1, cap, "pushtri, ltmp, 1", inuse_);
    tricap_ = cap;
  }
  const size_t base = 3 * col(t);
  for (int c = 0; c < 3; ++c) m_.tri[base + c] = corners[c];
  active_[col(t)] = 1;
  ++m_.ntri;
}

void Walk::growedges() {
  // Kept deliberately: the edge list grows from the incremented count, the vertex and
  // triangle lists from their old capacity (pushvrt, pushtri); it shows only in when an
  // allocation message comes. [pinned: Refine.WavesGiveExactlyTheSerialWalk (the capacities)]
  const int32_t cap = nextcapacity(nedge_ + 1, nedge_ + 1, "pushedge, tmp, 1");
  // The budget is asked list by list, as the table's arrays would be regrown one after another,
  // each with its own message.
  static constexpr struct {
    size_t bytes;  // an edge's bytes in the list
    const char *label;
  } lists[] = {{2 * sizeof(int32_t), "pushedge, tmp, 1"}, {2 * sizeof(int32_t), "pushedge, tmp, 2"},
               {2 * sizeof(int32_t), "pushedge, tmp, 3"}, {4 * sizeof(int32_t), "pushedge, tmp, 4"},
               {sizeof(double), "pushedge, dtmp, 1"},     {sizeof(int32_t), "pushedge, tmp1, 1"}};
  for (const auto &list : lists) {
    const size_t before = list.bytes * static_cast<size_t>(edgecap_), after = list.bytes * static_cast<size_t>(cap);
    if (inuse_ - before + after > listbudget()) checkalloc(1, list.label);
    inuse_ = inuse_ - before + after;
  }
  if (!records_.grow(static_cast<size_t>(cap))) checkalloc(1, "pushedge, tmp, 1");
  edgecap_ = cap;
}

void Walk::pushedge(const int32_t *verts, const int32_t *opposites, const int32_t *triangles, int32_t e, int32_t level,
                    const int32_t *neighbours) {
  if (nedge_ + 1 > edgecap_) growedges();
  WalkEdge &r = records_.data()[col(e)];
  r.vrt[0] = verts[0];
  r.vrt[1] = verts[1];
  r.opp[0] = opposites[0];
  r.opp[1] = opposites[1];
  r.tri[0] = triangles[0];
  r.tri[1] = triangles[1];
  for (int k = 0; k < 4; ++k) r.nbr[k] = neighbours[k];
  // The length of a new edge is taken between its warped ends (the asymmetry with the initial
  // edges is kept deliberately: see warp/warpstl.cpp).
  double len = 0.0;
  if (verts[0] >= 1 && verts[1] >= 1) {
    const double *p = m_.vrt.data() + 3 * col(verts[0]);
    const double *q = m_.vrt.data() + 3 * col(verts[1]);
    const double dx = q[0] - p[0], dy = q[1] - p[1], dz = q[2] - p[2];
    len = std::sqrt(dx * dx + dy * dy + dz * dz);
  }
  r.len = len;
  r.level = level;
  ++nedge_;
}

void Walk::leave(EdgeTable &edges, bool keep) const {
  edges.n = nedge_;
  edges.cap = edgecap_;
  if (!keep) return;
  const size_t cap = static_cast<size_t>(std::max(edgecap_, 0));
  allocate(edges.vrt, 2 * cap, "pushedge, tmp, 1");
  allocate(edges.tri, 2 * cap, "pushedge, tmp, 2");
  allocate(edges.opp, 2 * cap, "pushedge, tmp, 3");
  allocate(edges.nbr, 4 * cap, "pushedge, tmp, 4");
  allocate(edges.len, cap, "pushedge, dtmp, 1");
  allocate(edges.level, cap, "pushedge, tmp1, 1");
  const WalkEdge *r = records_.data();
  for (size_t e = 0; e < static_cast<size_t>(nedge_); ++e) {
    for (int k = 0; k < 2; ++k) {
      edges.vrt[2 * e + k] = r[e].vrt[k];
      edges.tri[2 * e + k] = r[e].tri[k];
      edges.opp[2 * e + k] = r[e].opp[k];
    }
    for (int k = 0; k < 4; ++k) edges.nbr[4 * e + k] = r[e].nbr[k];
    edges.len[e] = r[e].len;
    edges.level[e] = r[e].level;
  }
}

void Walk::splitedge(int32_t e, const double *midbefore, const double *midafter, int32_t level) {
  const WalkEdge &split = records_.data()[col(e)];
  const int32_t a = split.vrt[0], b = split.vrt[1];
  const int32_t t1 = split.tri[0], t2 = split.tri[1];
  const int32_t c = split.opp[0], d = split.opp[1];
  // Local order round the diamond: a-c, c-b, d-a, b-d (the stored slots 3 and 4 swap here).
  const int32_t nb[4] = {split.nbr[0], split.nbr[1], split.nbr[3], split.nbr[2]};

  int32_t ed[4], ft[4];
  if (d != 0) {
    for (int k = 0; k < 4; ++k) {
      ed[k] = nedge_ + 1 + k;
      ft[k] = m_.ntri + 1 + k;
    }
  } else {
    for (int k = 0; k < 3; ++k) ed[k] = nedge_ + 1 + k;
    ed[3] = 0;
    ft[0] = m_.ntri + 1;
    ft[1] = m_.ntri + 2;
    ft[2] = ft[3] = 0;
  }

  pushvrt(midbefore, midafter);
  const int32_t m = m_.nvrt;

  // The neighbours now border the new triangles and the new vertex. Per neighbour i: what e
  // becomes (half edge), its partner neighbour, and what the partner becomes (cross edge).
  const int32_t half[4] = {ed[0], ed[1], ed[0], ed[1]};
  const int32_t partner[4] = {nb[1], nb[0], nb[3], nb[2]};
  const int32_t cross[4] = {ed[2], ed[2], ed[3], ed[3]};
  const int nside = d != 0 ? 4 : 2;
  for (int i = 0; i < nside; ++i) {
    const int32_t ni = nb[i];
    if (ni < 1) continue;  // a slot that names no edge (only on a surface that is not closed)
    WalkEdge &nr = records_.data()[col(ni)];
    if (nr.tri[0] == t1 || nr.tri[0] == t2)
      nr.tri[0] = ft[i];
    else
      nr.tri[1] = ft[i];
    if (nr.opp[0] == a || nr.opp[0] == b)
      nr.opp[0] = m;
    else
      nr.opp[1] = m;
    for (int k = 0; k < 4; ++k) {
      int32_t &slot = nr.nbr[k];
      if (slot == e)
        slot = half[i];
      else if (slot == partner[i])
        slot = cross[i];
    }
  }

  // Kept deliberately: on a boundary edge of the surface as read, T1 runs a, b, c and slots 1
  // and 2 hold its own sides b-c and c-a. The two children then come out reversed and those two
  // neighbours are updated by slot as on an interior edge; that is how an open rim refines, and
  // the repair is made for what it leaves. [pinned: Refine.OpenRimChildrenComeOutReversed;
  // regression job tsrd_repair]
  const int32_t f1[3] = {a, c, m}, f2[3] = {c, b, m};
  pushtri(f1, ft[0]);
  pushtri(f2, ft[1]);
  if (d != 0) {
    const int32_t f3[3] = {d, a, m}, f4[3] = {b, d, m};
    pushtri(f3, ft[2]);
    pushtri(f4, ft[3]);
  }

  const int32_t lv = level + 1;
  {
    const int32_t v[2] = {a, m}, o[2] = {c, d}, t[2] = {ft[0], ft[2]};
    const int32_t n[4] = {nb[0], ed[2], ed[3], nb[2]};
    pushedge(v, o, t, ed[0], lv, n);
  }
  {
    const int32_t v[2] = {m, b}, o[2] = {c, d}, t[2] = {ft[1], ft[3]};
    const int32_t n[4] = {ed[2], nb[1], nb[3], ed[3]};
    pushedge(v, o, t, ed[1], lv, n);
  }
  {
    const int32_t v[2] = {m, c}, o[2] = {a, b}, t[2] = {ft[0], ft[1]};
    const int32_t n[4] = {ed[0], nb[0], nb[1], ed[1]};
    pushedge(v, o, t, ed[2], lv, n);
  }
  if (d != 0) {
    const int32_t v[2] = {d, m}, o[2] = {a, b}, t[2] = {ft[2], ft[3]};
    const int32_t n[4] = {nb[2], ed[0], ed[1], nb[3]};
    pushedge(v, o, t, ed[3], lv, n);
  }

  if (t1 >= 1) active_[col(t1)] = 0;
  if (d != 0 && t2 >= 1) active_[col(t2)] = 0;
}

// The displaced midpoints of the edges that the walk will test, computed ahead in parallel.
// The midpoint of an edge depends only on its two ends before the warp, which are fixed when the
// edge is made, and whether the walk tests it only on its level and its length, also fixed then.
// So the midpoints of a wave of edges (the initial edges, then the edges made while the walk
// went through the previous wave) can all be computed before the walk reaches them, each by the
// same call the walk would make; the walk then takes them in its own order.
class Midpoints {
 public:
  Midpoints(const WarpField &field, const RefineParams &params, const SurfaceMesh &mesh, const Walk &walk)
      : field_(field), params_(params), mesh_(mesh), walk_(walk), works_(threadwork(field)) {}

  // Computes the midpoints of edges first..last (1-based).
  void wave(int32_t first, int32_t last) {
    first_ = first;
    const size_t n = static_cast<size_t>(last - first + 1);
    if (after_.size() < 3 * n) {
      try {
        after_.resize(3 * n);
      } catch (const std::bad_alloc &) {
        checkalloc(1, "refinesurface, midpoints, 1");
      }
    }
    double *after = after_.data();
    const WarpField &field = field_;
    const int32_t count = static_cast<int32_t>(n);
    const Midpoints &self = *this;
    std::vector<WarpWork> &works = works_;
#pragma omp parallel default(none) shared(field, self, after, works) firstprivate(count, first)
    {
      setfpmode();
      WarpWork &work = works[static_cast<size_t>(omp_get_thread_num())];
#pragma omp for schedule(dynamic, 64)
      for (int32_t k = 0; k < count; ++k) {
        const int32_t e = first + k;
        double *mid = after + 3 * static_cast<size_t>(k);
        if (!self.tested(e)) continue;
        self.before(e, mid);
        warpvertex(field, mid, work);
      }
    }
  }
  // Whether the walk tests edge e: below the level limit and longer than minedge.
  bool tested(int32_t e) const {
    const WalkEdge &r = walk_.edge(e);
    return r.level < params_.maxrefine && r.len > params_.minedge;
  }
  // The midpoint of edge e before the warp.
  void before(int32_t e, double *mid) const {
    const WalkEdge &r = walk_.edge(e);
    const double *pa = mesh_.prewarp.data() + 3 * col(r.vrt[0]);
    const double *pb = mesh_.prewarp.data() + 3 * col(r.vrt[1]);
    for (int k = 0; k < 3; ++k) mid[k] = 0.5 * (pa[k] + pb[k]);
  }
  // The displaced midpoint of edge e of the current wave.
  const double *after(int32_t e) const { return after_.data() + 3 * static_cast<size_t>(e - first_); }

 private:
  const WarpField &field_;
  const RefineParams &params_;
  const SurfaceMesh &mesh_;
  const Walk &walk_;
  std::vector<WarpWork> works_;
  std::vector<double> after_;
  int32_t first_ = 1;
};

// The walk where no initial edge is to be tested: nothing is split, and the walk only passes its
// positions for the progress; the mesh stays, every triangle live. The edge table is left as the
// walk would leave it: trimmed to its count, every level 0 (with keepedges), or its counts alone.
RefineCounts passonly(const RefineParams &params, SurfaceMesh &mesh, EdgeTable &edges, const ProgressFn &progress) {
  const int32_t n = edges.n;
  int32_t progressmark = params.progressbase;
  for (int32_t i = 1; i <= n; ++i) {
    const double share = params.progressshare * 99.0 * i / n;
    int32_t p = params.progressbase + static_cast<int32_t>(std::lround(share));
    if (p > 99) p = 99;
    if (p > progressmark) {
      if (progress) progress(i, n, p);
      progressmark = p;
    }
  }
  const size_t ne = static_cast<size_t>(std::max(n, 0));
  edges.cap = n;
  if (params.keepedges) {
    edges.vrt.resize(2 * ne);
    edges.tri.resize(2 * ne);
    edges.opp.resize(2 * ne);
    edges.nbr.resize(4 * ne);
    edges.len.resize(ne);
    edges.level.assign(ne, 0);
  } else {
    releaseedges(edges);
  }
  mesh.tri.resize(3 * static_cast<size_t>(mesh.ntri));
  mesh.vrt.resize(3 * static_cast<size_t>(mesh.nvrt));
  mesh.prewarp.resize(3 * static_cast<size_t>(mesh.nvrt));
  return RefineCounts{mesh.ntri, mesh.ntri};
}

}  // namespace

RefineCounts refinesurface(const WarpField &unpacked, const RefineParams &params, SurfaceMesh &mesh, EdgeTable &edges,
                           const ProgressFn &progress) {
  const int32_t n0 = edges.n;
  // The initial edges in the walk's order. One that the walk will not test (not longer than
  // minedge, or at the level limit) changes nothing where the walk passes it but the progress;
  // with no length that is not a number such edges are exactly the shortest, the last of the
  // order, so only the others are sorted (ntested of them, edge numbers in edgeorder) and the
  // walk passes the rest as positions alone. A length that is not a number has no place in the
  // order but the sort's own: then all are sorted. The initial edges are all of level 0.
  const auto testedfirst = [&](int32_t e) { return 0 < params.maxrefine && edges.len[col(e)] > params.minedge; };
  bool nonumber = false;
  int32_t ntested = 0;
  for (int32_t e = 1; e <= n0; ++e) {
    nonumber = nonumber || std::isnan(edges.len[col(e)]);
    ntested += testedfirst(e);
  }
  if (ntested == 0) return passonly(params, mesh, edges, progress);
  std::vector<int32_t> edgeorder;
  if (nonumber) {
    ntested = n0;
    edgeorder.resize(static_cast<size_t>(std::max(n0, 0)));
    sortdoubles(edges.len.data(), edgeorder.data(), n0);
  } else {
    std::vector<double> lengths;
    std::vector<int32_t> numbers;
    lengths.reserve(static_cast<size_t>(ntested));
    numbers.reserve(static_cast<size_t>(ntested));
    for (int32_t e = 1; e <= n0; ++e)
      if (testedfirst(e)) {
        lengths.push_back(edges.len[col(e)]);
        numbers.push_back(e);
      }
    edgeorder.resize(static_cast<size_t>(ntested));
    sortdoubles(lengths.data(), edgeorder.data(), ntested);
    for (int32_t &k : edgeorder) k = numbers[col(k)];
  }

  std::vector<uint8_t> active;
  {
    Walk walk(mesh, edges);
    // The nodes packed for the midpoints' ring searches.
    RingNodes ring;
    const WarpField field = withringnodes(unpacked, ring);
    Midpoints mids(field, params, mesh, walk);
    int32_t wavelast = params.ahead ? n0 : std::numeric_limits<int32_t>::max();
    if (params.ahead) mids.wave(1, n0);
    WarpWork serialwork(field.params.navg);

    int32_t progressmark = params.progressbase;
    for (int32_t i = 1; i <= walk.nedge(); ++i) {
      // Position i of the initial edges: the i-th longest, or one passed as a position alone (0).
      const int32_t e = i > n0 ? i : i <= ntested ? edgeorder[static_cast<size_t>(ntested - i)] : 0;
      if (e > wavelast) {
        // The walk enters the edges made by the previous wave.
        mids.wave(wavelast + 1, walk.nedge());
        wavelast = walk.nedge();
      }

      const double share = params.progressshare * 99.0 * i / walk.nedge();
      int32_t p = params.progressbase + static_cast<int32_t>(std::lround(share));
      if (p > 99) p = 99;
      if (p > progressmark) {
        if (progress) progress(i, walk.nedge(), p);
        progressmark = p;
      }

      if (e == 0 || !mids.tested(e)) continue;
      const WalkEdge &r = walk.edge(e);
      const double len = r.len;
      const int32_t a = r.vrt[0], b = r.vrt[1], level = r.level;
      double before[3], after[3];
      mids.before(e, before);
      if (params.ahead) {
        const double *mid = mids.after(e);
        for (int k = 0; k < 3; ++k) after[k] = mid[k];
      } else {
        for (int k = 0; k < 3; ++k) after[k] = before[k];
        warpvertex(field, after, serialwork);
      }

      bool split = len > params.maxedge;
      if (!split) {
        const double *wa = mesh.vrt.data() + 3 * col(a);
        const double *wb = mesh.vrt.data() + 3 * col(b);
        double dev = 0.0;
        for (int k = 0; k < 3; ++k) {
          const double mk = 0.5 * (wa[k] + wb[k]);
          const double dk = after[k] - mk;
          dev += dk * dk;
        }
        split = dev > params.refinetolsq;
      }
      if (split) walk.splitedge(e, before, after, level);
    }
    walk.leave(edges, params.keepedges);
    active = walk.takeactive();
  }  // the records, the midpoints, the packed nodes and the order go before the compaction

  RefineCounts counts;
  counts.total = mesh.ntri;
  for (int32_t t = 0; t < mesh.ntri; ++t)
    if (active[static_cast<size_t>(t)]) ++counts.active;

  // Compaction in place: the live triangles in ascending order (a triangle never moves up).
  int32_t *tri = mesh.tri.data();
  size_t w = 0;
  for (int32_t t = 0; t < mesh.ntri; ++t) {
    if (!active[static_cast<size_t>(t)]) continue;
    const int32_t *src = tri + 3 * static_cast<size_t>(t);
    tri[w++] = src[0];
    tri[w++] = src[1];
    tri[w++] = src[2];
  }
  mesh.tri.resize(w);
  mesh.ntri = counts.active;
  const size_t nv = 3 * static_cast<size_t>(mesh.nvrt);
  mesh.vrt.resize(nv);
  mesh.prewarp.resize(nv);
  return counts;
}

}  // namespace wf
