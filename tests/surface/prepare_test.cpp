// SPDX-License-Identifier: GPL-3.0-or-later
// The surface preparation, from soup to checked mesh (its console lines are tests/steps'): the
// sort kit and the numbering of keys by rank against std::stable_sort, the merge by lattice keys
// against the merge by sorting the coordinates, the edge table against one built the plain way
// from a stable sort of the sides, the snap.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "shapes.h"
#include "surface/edges.h"
#include "surface/preparesurface.h"
#include "surface/sortkit.h"
#include "testutil.h"

using namespace wft;
using I = std::vector<int32_t>;
using V = std::vector<double>;
using K = std::vector<uint64_t>;

namespace {

const double qnan = std::numeric_limits<double>::quiet_NaN();

I identity(int32_t n) {
  I p(static_cast<size_t>(n));
  std::iota(p.begin(), p.end(), 1);
  return p;
}

// The stable order of the rows in p by a lexicographic less-than.
template <class K>
I stablereference(const std::vector<K> &a, I p, int nc) {
  std::stable_sort(p.begin(), p.end(), [&](int32_t l, int32_t r) {
    const K *x = a.data() + nc * (l - 1), *y = a.data() + nc * (r - 1);
    return std::lexicographical_compare(x, x + nc, y, y + nc);
  });
  return p;
}

// Run numbers along sorted order p: a new run wherever a row differs from the one before.
template <class K>
I runsof(const std::vector<K> &a, const I &p, int nc) {
  I r(p.size(), 1);
  for (size_t i = 1; i < p.size(); ++i)
    r[i] = r[i - 1] + !std::equal(&a[nc * (p[i] - 1)], &a[nc * (p[i] - 1)] + nc, &a[nc * (p[i - 1] - 1)]);
  return r;
}

// rankkeys against the stable sort of the keys: the run number of each key, and the first
// (lowest) position of each run.
void checkranks(const K &keys, wf::Scratch &scratch, const std::string &what) {
  const int32_t n = static_cast<int32_t>(keys.size());
  const I order = stablereference(keys, identity(n), 1), runs = runsof(keys, order, 1);
  I expect(keys.size()), expectfirst;
  for (size_t i = 0; i < order.size(); ++i) {
    expect[static_cast<size_t>(order[i] - 1)] = runs[i];
    if (expectfirst.size() < static_cast<size_t>(runs[i])) expectfirst.push_back(order[i] - 1);
  }
  I rank(keys.size(), -7);
  wf::KeyRanks out;
  ASSERT_TRUE(wf::rankkeys(keys.data(), n, rank.data(), out, scratch)) << what;
  EXPECT_EQ(rank, expect) << what;
  ASSERT_EQ(out.nuniq, static_cast<int32_t>(expectfirst.size())) << what;
  EXPECT_EQ(I(out.first, out.first + out.nuniq), expectfirst) << what;
}

struct Merged {
  wf::SurfaceMesh mesh;
  V triedgesq;
  bool keyed = false;  // the snap gave lattice keys
};

// The soup snapped at pitch, then merged by its keys (keyed), or by the sort of its coordinates.
Merged snapmerge(const Soup &s, double pitch, bool bykeys, wf::Scratch *scratch = nullptr) {
  wf::RawSurface raw = rawof(s);
  K keys;
  wf::snapvertices(raw, pitch, &keys);
  Merged m;
  m.keyed = !keys.empty();
  wf::mergevertices(raw, m.mesh, m.triedgesq, bykeys ? &keys : nullptr, scratch);
  EXPECT_TRUE(raw.vrt.empty());
  return m;
}

void expectsamemerge(const Merged &a, const Merged &b, const std::string &what) {
  EXPECT_EQ(std::tie(a.mesh.nvrt, a.mesh.ntri, a.mesh.tri), std::tie(b.mesh.nvrt, b.mesh.ntri, b.mesh.tri)) << what;
  EXPECT_TRUE(samebits(a.mesh.vrt, b.mesh.vrt) && samebits(a.triedgesq, b.triedgesq)) << what;
}

// The edge table the plain way: the sides keyed (lower, higher) and put in a stable order,
// numbered by runs; then triangle by triangle, each of its edges counted once (the three counts
// raised together), and the tables written in the order of the triangles.
struct Plain {
  wf::EdgeTable edges;
  wf::EdgeCounts counts;
};
Plain plainedges(const wf::SurfaceMesh &mesh, const V &triedgesq) {
  const size_t ntri = static_cast<size_t>(mesh.ntri), nside = 3 * ntri;
  const I &tri = mesh.tri;
  std::vector<size_t> order(nside);
  std::iota(order.begin(), order.end(), size_t{0});
  auto key = [&](size_t h) {
    const int32_t a = tri[3 * (h / 3) + h % 3], b = tri[3 * (h / 3) + (h % 3 + 1) % 3];
    return std::make_pair(std::min(a, b), std::max(a, b));
  };
  std::stable_sort(order.begin(), order.end(), [&](size_t l, size_t r) { return key(l) < key(r); });
  Plain p;
  wf::EdgeTable &e = p.edges;
  e.triedge.assign(nside, 0);
  int32_t ne = 0;
  for (size_t i = 0; i < nside; ++i) {
    if (i == 0 || key(order[i]) != key(order[i - 1])) ++ne;
    e.triedge[order[i]] = ne;
  }
  const size_t n = static_cast<size_t>(ne);
  e.n = e.cap = ne;
  e.vrt.assign(2 * n, 0), e.tri.assign(2 * n, 0), e.opp.assign(2 * n, 0), e.nbr.assign(4 * n, 0);
  e.len.assign(n, 0);
  I c(n, 0), m(n, 0);
  for (size_t t = 0; t < ntri; ++t) {
    const int32_t *te = &e.triedge[3 * t];
    int32_t raised[3];
    for (int k = 0; k < 3; ++k) raised[k] = c[static_cast<size_t>(te[k] - 1)] + 1;
    for (int k = 0; k < 3; ++k) c[static_cast<size_t>(te[k] - 1)] = raised[k];
    for (int k = 0; k < 3; ++k) {
      const size_t ed = static_cast<size_t>(te[k] - 1);
      e.len[ed] = std::sqrt(triedgesq[3 * t + static_cast<size_t>(k)]);
      e.vrt[2 * ed] = tri[3 * t + static_cast<size_t>(k)];
      e.vrt[2 * ed + 1] = tri[3 * t + static_cast<size_t>((k + 1) % 3)];
      if (c[ed] <= 2) {
        e.tri[2 * ed + static_cast<size_t>(c[ed] - 1)] = static_cast<int32_t>(t + 1);
        e.opp[2 * ed + static_cast<size_t>(c[ed] - 1)] = tri[3 * t + static_cast<size_t>((k + 2) % 3)];
      }
      if (m[ed] + 1 <= 4) e.nbr[4 * ed + static_cast<size_t>(m[ed])] = te[(k + 1) % 3];
      if (m[ed] + 2 <= 4) e.nbr[4 * ed + static_cast<size_t>(m[ed]) + 1] = te[(k + 2) % 3];
      m[ed] += 2;
    }
  }
  for (size_t ed = 0; ed < n; ++ed) ++(c[ed] == 1 ? p.counts.open : c[ed] == 2 ? p.counts.good : p.counts.over);
  p.counts.inverted = wf::countinverted(mesh, e);
  return p;
}

// buildedges against the plain table, field by field.
void checkedges(const wf::SurfaceMesh &mesh, const V &triedgesq, const std::string &what,
                wf::Scratch *scratch = nullptr) {
  const Plain want = plainedges(mesh, triedgesq);
  wf::EdgeTable got;
  got.level = {1, 2, 3};
  const wf::EdgeCounts c = wf::buildedges(mesh, triedgesq, got, scratch);
  const wf::EdgeTable &w = want.edges;
  EXPECT_EQ(std::tie(got.n, got.cap, got.vrt, got.tri, got.opp, got.nbr, got.triedge),
            std::tie(w.n, w.n, w.vrt, w.tri, w.opp, w.nbr, w.triedge))
      << what;
  EXPECT_TRUE(samebits(got.len, w.len) && got.level.empty()) << what;
  const wf::EdgeCounts &wc = want.counts;
  EXPECT_EQ(std::tie(c.open, c.good, c.over, c.inverted), std::tie(wc.open, wc.good, wc.over, wc.inverted)) << what;
  EXPECT_EQ(c.inverted, wf::countinverted(mesh, got)) << what;
}

// A mesh given by its corners, with made-up squared sides (distinct per side, so that the one
// that gives an edge its length shows).
wf::SurfaceMesh meshof(const I &tri, int32_t nvrt, V &triedgesq) {
  wf::SurfaceMesh m;
  m.tri = tri;
  m.ntri = static_cast<int32_t>(tri.size() / 3);
  m.nvrt = nvrt;
  triedgesq.resize(tri.size());
  for (size_t h = 0; h < tri.size(); ++h) triedgesq[h] = 1.0 + static_cast<double>(h);
  return m;
}

}  // namespace

TEST(SortKit, AgainstReference) {
  // n from 0 (no pass), 2 (one pass, copied back), 3 (two passes) up. Few distinct values, so
  // that ties are common: both signs and zeros, subnormal and huge magnitudes. Ties keep the
  // order of the shuffled incoming permutation.
  const V pool = {0.0, -0.0, 1e-310, -1e-310, 1e300, -1e300, 3.5, -3.5, 1.0, 2.0, 1.0 + 0x1p-52};
  std::mt19937 gen(7);
  I longrun, iuniq;
  int32_t nuniq = 0;
  for (int32_t n : {0, 1, 2, 3, 5, 17, 1000, 30000})
    for (int nc : {1, 2, 3, 5}) {
      V a(static_cast<size_t>(nc) * n);
      for (double &x : a) x = pool[gen() % pool.size()];
      I p = identity(n);
      std::shuffle(p.begin(), p.end(), gen);
      const I expect = stablereference(a, p, nc);
      wf::sortdoublerows(a.data(), p.data(), nc, n);
      ASSERT_EQ(p, expect) << "sortdoublerows n=" << n << " ncols=" << nc;
      wf::numberdoubleruns(a.data(), p.data(), longrun, nc, n, nuniq, iuniq);
      EXPECT_EQ(longrun, runsof(a, p, nc));
      EXPECT_EQ(nuniq, n ? longrun.back() : 0);
      p.assign(p.size(), 0);  // sortdoubles fills p itself
      wf::sortdoubles(a.data(), p.data(), n);
      EXPECT_EQ(p, stablereference(V(a.begin(), a.begin() + n), identity(n), 1)) << "sortdoubles n=" << n;
    }
}

TEST(SortKit, ValuesThatAreNotNumbers) {
  // [3, NaN, 1]: pass 1 ties 3 with NaN (left first); pass 2 takes 1 before 3, then the rest.
  // sortdoubles takes the right value unless right >= left: NaN moves ahead in pass 1, and 1
  // beats NaN in pass 2.
  V a = {3.0, qnan, 1.0}, rows = {qnan, 2.0, qnan, 1.0}, twonan = {qnan, qnan, 0.0};
  I p = identity(3), longrun, iuniq;
  wf::sortdoublerows(a.data(), p.data(), 1, 3);
  EXPECT_EQ(p, I({3, 1, 2}));
  wf::sortdoubles(a.data(), p.data(), 3);
  EXPECT_EQ(p, I({3, 2, 1}));
  p = identity(2);  // a NaN in the first column passes the decision to the next column
  wf::sortdoublerows(rows.data(), p.data(), 2, 2);
  EXPECT_EQ(p, I({2, 1}));
  int32_t nuniq = 0;  // a NaN never equals itself: two NaN rows are two runs
  p = identity(3);
  wf::numberdoubleruns(twonan.data(), p.data(), longrun, 1, 3, nuniq, iuniq);
  EXPECT_EQ(longrun, I({1, 2, 3}));
}

// The first rows of the runs (iuniq) are shifted by one run when the first run has more than one
// row, the last entry then left at 0; with a first run of one row they are the plain first rows.
TEST(SortKit, FirstRowsShiftedWhenTheFirstRunRepeats) {
  I longrun, iuniq;
  int32_t nuniq = 0;
  const V repeated = {1.0, 1.0, 2.0, 3.0}, single = {1.0, 2.0, 2.0, 3.0};
  const I p = identity(4);
  wf::numberdoubleruns(repeated.data(), p.data(), longrun, 1, 4, nuniq, iuniq);
  EXPECT_EQ(longrun, I({1, 1, 2, 3}));
  EXPECT_EQ(nuniq, 3);
  EXPECT_EQ(iuniq, I({3, 4, 0}));  // the first rows of the runs would be 1, 3, 4
  wf::numberdoubleruns(single.data(), p.data(), longrun, 1, 4, nuniq, iuniq);
  EXPECT_EQ(longrun, I({1, 2, 2, 3}));
  EXPECT_EQ(iuniq, I({1, 2, 4}));
}

TEST(RankKeys, AgainstSortingAllKeys) {
  std::mt19937_64 gen(22);
  wf::Scratch scratch;
  for (int32_t n : {0, 1, 2, 3, 31, 1000, 100000})
    for (uint64_t range : {uint64_t{1}, uint64_t{5}, uint64_t{1} << 20, ~uint64_t{0}}) {
      K keys(static_cast<size_t>(n));
      for (auto &k : keys) k = range == ~uint64_t{0} ? gen() : gen() % range;
      checkranks(keys, scratch, "n=" + std::to_string(n) + " range=" + std::to_string(range));
    }
  // Every key distinct: the table fills to half its slots and is made again twice as large,
  // more than once; the extremes of the key range among them.
  K keys(50000);
  for (size_t i = 0; i < keys.size(); ++i) keys[i] = 0x9E3779B97F4A7C15ull * (i + 1);
  keys[7] = 0, keys[9] = ~uint64_t{0};
  checkranks(keys, scratch, "distinct");
  // The same scratch, smaller work: the block is kept.
  const size_t held = scratch.size();
  checkranks(K{5, 3, 5, 0, 3}, scratch, "small after large");
  EXPECT_EQ(scratch.size(), held);
}

TEST(RankKeys, KeysThatMeetInOneSlot) {
  // Keys whose slot is the last of any table of up to 256 slots: they all start at the last
  // slot and probe on from the first, among other keys, with repeats in any order.
  K meet;
  for (uint64_t k = 1; meet.size() < 40; ++k)
    if (wf::keyslot(k, 8) == 255) meet.push_back(k);
  for (int bits = 1; bits <= 8; ++bits) EXPECT_EQ(wf::keyslot(meet[0], bits), (1u << bits) - 1) << bits;
  std::mt19937 gen(3);
  wf::Scratch scratch;
  for (size_t nother : {size_t{0}, size_t{20}, size_t{150}}) {
    K keys;
    for (int rep = 0; rep < 3; ++rep) keys.insert(keys.end(), meet.begin(), meet.end());
    for (size_t i = 0; i < nother; ++i) keys.push_back(gen() % 97);
    std::shuffle(keys.begin(), keys.end(), gen);
    checkranks(keys, scratch, "meeting keys, others " + std::to_string(nother));
  }
}

TEST(MergeVertices, KeysGiveTheNumbersOfTheCoordinateSort) {
  // Points of a lattice of pitch 0.01, each moved by less than a quarter pitch in each axis,
  // so that many corners are equal only after the snap; about six corners a point.
  std::mt19937 gen(11);
  std::uniform_int_distribution<int> cell(-40, 40);
  std::uniform_real_distribution<double> jitter(-0.0024, 0.0024);
  const double pitch = 0.01;
  std::vector<std::array<int, 3>> points(3000);
  for (auto &p : points) p = {cell(gen), cell(gen), cell(gen)};
  Soup s;
  for (int c = 0; c < 3 * 6000; ++c) {
    const auto &p = points[gen() % points.size()];
    for (int k = 0; k < 3; ++k) s.push_back(p[k] * pitch + jitter(gen));
  }
  s.insert(s.end(), {-0.41, -0.41, -0.41, 0.41, 0.41, 0.41, 0, 0, 0});  // the box: centre 0
  wf::Scratch scratch;
  const Merged bykeys = snapmerge(s, pitch, true, &scratch);
  const Merged bysort = snapmerge(s, pitch, false);
  ASSERT_TRUE(bykeys.keyed);
  EXPECT_LT(bykeys.mesh.nvrt, 3100);
  expectsamemerge(bykeys, bysort, "jittered lattice");
  // Again on the scratch of the first merge.
  expectsamemerge(snapmerge(s, pitch, true, &scratch), bysort, "jittered lattice, scratch reused");

  // Corners 0.3 pitch apart on either side of a lattice point merge; on either side of the
  // half-way line between two points they do not, however close.
  // The third triangle makes the box centre 0, so that the lattice points are multiples of
  // the pitch.
  const Soup pairs = {0.0, 0.0,  0.0, 0.003, 0.0,   0.0,   -0.003, 0.0,  0.0,  0.00499, 0.0, 0.0, 0.00501, 0.0,
                      0.0, 0.01, 0.0, 0.0,   -0.05, -0.05, -0.05,  0.05, 0.05, 0.05,    0.0, 0.0, 0.0};
  Merged a = snapmerge(pairs, pitch, true), b = snapmerge(pairs, pitch, false);
  ASSERT_TRUE(a.keyed);
  EXPECT_EQ(a.mesh.nvrt, 4);
  EXPECT_EQ(a.mesh.tri, I({2, 2, 2, 2, 3, 3, 1, 4, 2}));
  expectsamemerge(a, b, "pairs");
}

TEST(MergeVertices, SignedZerosAndValuesThatAreNotNumbers) {
  // Zeros of either sign snap to one lattice point, which has no negative zero: the keys hold,
  // and give what the coordinate sort gives.
  const Soup zeros = {-0.0, 0.0, -0.0, 0.0, -0.0, 0.0, 1, 1, 1, 0.0, 0.0, -0.0, -0.0, -0.0, -0.0, -1, -1, -1};
  Merged a = snapmerge(zeros, 1e-3, true), b = snapmerge(zeros, 1e-3, false);
  ASSERT_TRUE(a.keyed);
  EXPECT_EQ(a.mesh.nvrt, 3);
  EXPECT_EQ(a.mesh.tri, I({2, 2, 3, 2, 2, 1}));
  for (double x : a.mesh.vrt) EXPECT_FALSE(std::signbit(x) && x == 0.0);
  expectsamemerge(a, b, "signed zeros");

  // Unsnapped zeros of either sign, merged without keys: one vertex, whose coordinates are
  // those of the last corner in file order.
  wf::RawSurface raw = rawof({0.0, -0.0, 0.0, -0.0, 0.0, 0.0, 1, 1, 1});
  wf::SurfaceMesh mesh;
  V sq;
  wf::mergevertices(raw, mesh, sq);
  ASSERT_EQ(mesh.nvrt, 2);
  EXPECT_EQ(mesh.tri, I({1, 1, 2}));
  EXPECT_TRUE(std::signbit(mesh.vrt[0]));
  EXPECT_FALSE(std::signbit(mesh.vrt[1]));

  // A coordinate that is not a number ends the keys; the coordinates are sorted, the same with
  // the (empty) keys handed over as without.
  const Soup withnan = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, qnan, 0, 0, 0, 1, 0};
  a = snapmerge(withnan, 1e-3, true), b = snapmerge(withnan, 1e-3, false);
  EXPECT_FALSE(a.keyed);
  expectsamemerge(a, b, "not a number");
  EXPECT_EQ(a.mesh.nvrt, 4);
}

TEST(BuildEdges, AgainstThePlainTable) {
  V sq;
  wf::Scratch scratch;
  // A closed tetrahedron, the same with one triangle turned (three inverse edges), a single
  // triangle, three triangles on one edge, triangles with two and three equal corners.
  const I tet = {1, 2, 3, 1, 3, 4, 1, 4, 2, 2, 4, 3};
  I flipped = tet;
  std::swap(flipped[10], flipped[11]);
  const std::pair<I, int32_t> cases[] = {
      {tet, 4}, {flipped, 4}, {{1, 2, 3}, 3}, {{1, 2, 3, 2, 1, 4, 1, 2, 5}, 5}, {{1, 1, 2}, 2}, {{2, 2, 2, 1, 2, 3}, 3},
      {{}, 0}};
  for (const auto &[tri, nvrt] : cases) {
    const wf::SurfaceMesh m = meshof(tri, nvrt, sq);
    checkedges(m, sq, "case of " + std::to_string(tri.size() / 3) + " triangles");
    checkedges(m, sq, "the same on shared scratch", &scratch);
  }
  // Random triangles over few vertices: open, overloaded and zero-length edges, triangles
  // repeated and turned, in any order, vertices with long lists of sides; and the same vertices
  // numbered from -3 and far up.
  std::mt19937 gen(5);
  for (int32_t nv : {3, 8, 40, 400})
    for (int32_t offset : {0, -4, 1000000}) {
      I tri(3 * 500);
      for (auto &v : tri) v = 1 + offset + static_cast<int32_t>(gen() % static_cast<uint32_t>(nv));
      checkedges(meshof(tri, nv, sq), sq, "random nv=" + std::to_string(nv) + " offset=" + std::to_string(offset),
                 &scratch);
    }
}

TEST(PrepareSurface, MergedCorners) {
  // A tetrahedron and a triangle with two equal corners: the zero side does not count in the
  // minimum edge and is an edge with equal ends and one triangle; the other two sides lie on
  // one edge, which gains one triangle for both (2 + 1).
  Soup s = tetrahedron(2.0);
  s.insert(s.end(), {0, 0, 0, 0, 0, 0, 2, 0, 0});
  wf::PreparedSurface p = preparedof(s);
  EXPECT_NEAR(p.mesh.minedgelen, 2.0, 1e-15);
  EXPECT_EQ(p.check.status, -1);
  EXPECT_EQ(p.mesh.nvrt, 4);
  EXPECT_EQ(p.mesh.tri[12], p.mesh.tri[13]);
  const int32_t ez = p.edges.triedge[12] - 1;
  EXPECT_EQ(p.edges.vrt[2 * ez], p.edges.vrt[2 * ez + 1]);
  EXPECT_EQ(p.edges.len[ez], 0.0);
  EXPECT_EQ(I(p.edges.tri.begin() + 2 * ez, p.edges.tri.begin() + 2 * ez + 2), I({5, 0}));
  EXPECT_EQ(p.edges.triedge[13], p.edges.triedge[14]);
  EXPECT_EQ(std::tie(p.counts.open, p.counts.good, p.counts.over), std::tuple(1, 5, 1));
  // Alone, such a triangle's shared edge fills its four neighbour slots from its two sides.
  p = preparedof({0, 0, 0, 0, 0, 0, 2, 0, 0});
  const int32_t e = p.edges.triedge[1] - 1, z = p.edges.triedge[0];
  EXPECT_EQ(I(p.edges.nbr.begin() + 4 * e, p.edges.nbr.begin() + 4 * e + 4), I({e + 1, z, z, e + 1}));
}

// Each stage is told before its work: no vertex is merged when the merge is told (a fatal end of
// the merge comes after its console line), all are when the edges are.
TEST(PrepareSurface, StagesAreToldBeforeTheirWork) {
  wf::RawSurface raw = rawof(cube(2.0));
  std::vector<std::pair<wf::PrepareStage, int32_t>> told;
  wf::preparemesh(raw, {}, [&](wf::PrepareStage stage, const wf::PreparedSurface &sofar) {
    told.emplace_back(stage, sofar.mesh.nvrt);
  });
  EXPECT_EQ(told, (std::vector<std::pair<wf::PrepareStage, int32_t>>{
                      {wf::PrepareStage::snap, 0}, {wf::PrepareStage::merge, 0}, {wf::PrepareStage::edges, 8}}));
}

// The snap: box [-32, 32]^3 and a pitch of exactly 1 (box rule, 1/64 of 64): the lattice points
// are the integers, the box centre is 0, and halves round away from zero. (The choice of the
// tolerance's rule is in every regression job's console.)
TEST(PrepareSurface, Snap) {
  const wf::PreparedSurface p =
      preparedof({-32, -32, -32, 32, 32, 32, 0.5, -0.5, 2.5, -2.5, 0.49, -0.49, 1.5, 0.4, 0.6, 0.1, 0.4, 0.3},
                 {.reltolbox = 1.0 / 64.0, .tolbybox = true});
  EXPECT_EQ(p.tolerance.tol, 1.0);
  EXPECT_EQ(p.mesh.vrt, V({-32, -32, -32, -3, 0, 0, 0, 0, 0, 1, -1, 3, 2, 0, 1, 32, 32, 32}));
  EXPECT_FALSE(std::signbit(p.mesh.vrt[5]));  // -0.49 went through the integer: no -0
  EXPECT_EQ(p.mesh.tri, I({1, 6, 4, 2, 5, 3}));
}
