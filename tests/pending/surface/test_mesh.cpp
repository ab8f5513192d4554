// SPDX-License-Identifier: GPL-2.0-or-later
// From soup to checked mesh: the sort kit against std::stable_sort, tolerance and snap, the
// edge tables against a reference built with a map, the surface checks, and facet normals.
#include "surfacefixtures.h"

using namespace wft;
using wf::RunState;

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

struct Prepared {
  int status = 99;
  bool result = false;
  std::string out;
};

// The soup as just read (rawvrt, counts, box) for the surface "part.stl", then preparesurface.
Prepared prepare(RunState &rs, const Soup &s) {
  if (rs.stlfiles.n == 0) rs.stlfiles.v = {"part.stl"}, rs.stlfiles.n = 1, rs.curstlid = 1;
  if (rs.stlpath.empty()) rs.stlpath = "part.stl";
  rs.rawvrt = s;
  rs.nrawvrt = static_cast<int32_t>(s.size() / 3);
  rs.ntri = rs.nrawvrt / 3;
  for (int k = 0; k < 3; ++k) {
    auto &b = rs.stlbbox;
    b.min[k] = b.max[k] = s[k];
    for (size_t j = k; j < s.size(); j += 3)
      b.min[k] = std::min(b.min[k], s[j]), b.max[k] = std::max(b.max[k], s[j]);
    b.size[k] = b.max[k] - b.min[k], b.centre[k] = 0.5 * (b.min[k] + b.max[k]);
  }
  Prepared p;
  p.out = captured([&] { wf::preparesurface(rs, p.status, true, false, p.result); });
  return p;
}

// The number printed after "label" on a console line.
double valueafter(const std::string &out, const std::string &label) {
  for (const auto &l : splitlines(out))
    if (l.rfind(" " + label, 0) == 0) return std::strtod(l.c_str() + 1 + label.size(), nullptr);
  ADD_FAILURE() << "no line " << label;
  return -1;
}

// Vertices strictly ascending, and every edge table against a reference made from the
// triangles with an ordered map. Meant for triangles with three distinct vertices.
void checkmesh(const RunState &rs) {
  for (int32_t v = 1; v < rs.nvrt; ++v) {
    const double *a = &rs.stlvrt[3 * (v - 1)];
    EXPECT_TRUE(std::lexicographical_compare(a, a + 3, a + 3, a + 6)) << "vertex " << v;
  }
  std::map<std::pair<int32_t, int32_t>, std::vector<std::pair<size_t, int>>> sides;  // (t, k)
  for (size_t t = 0; t < static_cast<size_t>(rs.ntri); ++t)
    for (int k = 0; k < 3; ++k) {
      int32_t a = rs.stltri[3 * t + k], b = rs.stltri[3 * t + (k + 1) % 3];
      ASSERT_NE(a, b) << "checkmesh wants proper triangles";
      sides[{std::min(a, b), std::max(a, b)}].push_back({t, k});
    }
  ASSERT_EQ(rs.nedge, static_cast<int32_t>(sides.size()));
  size_t e = 0;
  for (const auto &[key, list] : sides) {
    const auto [lt, lk] = list.back();  // the last side to touch the edge gives its direction
    EXPECT_EQ(rs.edgevrt[2 * e], rs.stltri[3 * lt + lk]) << "edge " << e + 1;
    EXPECT_EQ(rs.edgevrt[2 * e + 1], rs.stltri[3 * lt + (lk + 1) % 3]) << "edge " << e + 1;
    EXPECT_DOUBLE_EQ(rs.edgelen[e], std::sqrt(rs.triedgesq[3 * lt + lk]));
    for (size_t j = 0; j < 2; ++j) {  // the first two triangles, or zeros
      const bool has = j < list.size();
      const auto [t, k] = has ? list[j] : std::pair<size_t, int>{0, 0};
      EXPECT_EQ(rs.edgetri[2 * e + j], has ? static_cast<int32_t>(t + 1) : 0) << "edge " << e + 1;
      EXPECT_EQ(rs.edgeopp[2 * e + j], has ? rs.stltri[3 * t + (k + 2) % 3] : 0) << "edge " << e + 1;
      EXPECT_EQ(rs.edgenbr[4 * e + 2 * j], has ? rs.triedge[3 * t + (k + 1) % 3] : 0);
      EXPECT_EQ(rs.edgenbr[4 * e + 2 * j + 1], has ? rs.triedge[3 * t + (k + 2) % 3] : 0);
    }
    for (const auto &[t, k] : list) EXPECT_EQ(rs.triedge[3 * t + k], static_cast<int32_t>(e + 1));
    ++e;
  }
}

}  // namespace

TEST(SortKit, AgainstReference) {
  // n from 0 (no pass), 2 (one pass, copied back), 3 (two passes) up. Few distinct values, so
  // that ties are common: both signs and zeros, subnormal and huge magnitudes, integer
  // extremes. Ties keep the order of the shuffled incoming permutation.
  const V pool = {0.0, -0.0, 1e-310, -1e-310, 1e300, -1e300, 3.5, -3.5, 1.0, 2.0, 1.0 + 0x1p-52};
  const I ipool = {std::numeric_limits<int32_t>::min(), -5, -1, 0, 1, 7, std::numeric_limits<int32_t>::max()};
  RunState rs;
  std::mt19937 gen(7);
  I longrun, iuniq;
  int32_t nuniq = 0;
  for (int32_t n : {0, 1, 2, 3, 5, 17, 1000, 30000})
    for (int nc : {1, 2, 3, 5}) {
      V a(static_cast<size_t>(nc) * n);
      I ai(a.size());
      for (size_t i = 0; i < a.size(); ++i)
        a[i] = pool[gen() % pool.size()], ai[i] = ipool[gen() % ipool.size()];
      I p = identity(n);
      std::shuffle(p.begin(), p.end(), gen);
      I expect = stablereference(a, p, nc);
      wf::dmatsort(rs, a.data(), p.data(), nc, n);
      ASSERT_EQ(p, expect) << "dmatsort n=" << n << " ncols=" << nc;
      wf::uniq_include(rs, a.data(), p.data(), longrun, nc, n, nuniq, iuniq, false);
      EXPECT_EQ(longrun, runsof(a, p, nc));
      EXPECT_EQ(nuniq, n ? longrun.back() : 0);
      p.assign(p.size(), 0);  // imatsort and dvecsort fill p themselves
      wf::imatsort(ai.data(), p.data(), nc, n);
      ASSERT_EQ(p, stablereference(ai, identity(n), nc)) << "imatsort n=" << n << " ncols=" << nc;
      wf::uniq_include_int(rs, ai.data(), p.data(), longrun, nc, n, nuniq, iuniq, false);
      EXPECT_EQ(longrun, runsof(ai, p, nc));
      EXPECT_EQ(nuniq, n ? longrun.back() : 0);
      p.assign(p.size(), 0);
      wf::dvecsort(a.data(), p.data(), n);
      EXPECT_EQ(p, stablereference(V(a.begin(), a.begin() + n), identity(n), 1)) << "dvecsort n=" << n;
    }
}

TEST(SortKit, ValuesThatAreNotNumbers) {
  // [3, NaN, 1]: pass 1 ties 3 with NaN (left first); pass 2 takes 1 before 3, then the rest.
  // dvecsort takes the right value unless right >= left: NaN moves ahead in pass 1, and 1
  // beats NaN in pass 2.
  RunState rs;
  V a = {3.0, qnan, 1.0}, rows = {qnan, 2.0, qnan, 1.0}, twonan = {qnan, qnan, 0.0};
  I p = identity(3), longrun, iuniq;
  wf::dmatsort(rs, a.data(), p.data(), 1, 3);
  EXPECT_EQ(p, I({3, 1, 2}));
  wf::dvecsort(a.data(), p.data(), 3);
  EXPECT_EQ(p, I({3, 2, 1}));
  p = identity(2);  // a NaN in the first column passes the decision to the next column
  wf::dmatsort(rs, rows.data(), p.data(), 2, 2);
  EXPECT_EQ(p, I({2, 1}));
  int32_t nuniq = 0;  // a NaN never equals itself: two NaN rows are two runs
  p = identity(3);
  wf::uniq_include(rs, twonan.data(), p.data(), longrun, 1, 3, nuniq, iuniq, false);
  EXPECT_EQ(longrun, I({1, 2, 3}));
}

TEST(PrepareSurface, ClosedSurfaces) {
  RunState rs;
  Prepared p = prepare(rs, tetrahedron());
  EXPECT_TRUE(p.status == 0 && p.result);
  EXPECT_EQ(rs.nvrt, 4);
  EXPECT_TRUE(rs.rawvrt.empty());
  EXPECT_TRUE(rs.edgesurf.empty());  // released after the orientation check
  EXPECT_EQ(rs.surfwatertight, I({-1}));
  EXPECT_EQ(rs.surforiented, I({-1}));
  checkmesh(rs);
  EXPECT_NEAR(rs.triedgesq[1], 2.0, 1e-9);  // the second side of (A, C, B): C-B
  EXPECT_EQ(splitlines(p.out),
            Lines({" Minimum edge length = 1", " Machine precision = 2.220446049250313e-16",
                   " STL precision for 8-byte integers = 1.0842021724855044e-19",
                   " Absolute tolerance = 1e-06", "", " Equivalencing vertices",
                   " Number of unique vertices = 4", " Finished vertex equivalencing", "",
                   " Equivalencing STL edges", " Number of unique edges = 6", " Euler characteristic   = 2",
                   " Finished edge equivalencing", ""}));
  EXPECT_EQ(rs.nwarnings, 0);

  // Three cubes at coordinates that are no doubles: each corner of the file stays within the snap.
  Soup s = cubes(3);
  RunState rc;
  p = prepare(rc, s);
  EXPECT_TRUE(p.status == 0 && p.result);
  EXPECT_EQ(rc.nvrt, 24);
  checkmesh(rc);
  for (size_t c = 0; c < s.size(); ++c)
    ASSERT_NEAR(rc.stlvrt[3 * (rc.stltri[c / 3] - 1) + c % 3], s[c], 1e-6);
}

TEST(PrepareSurface, FlippedOpenAndOverloaded) {
  // A tetrahedron with one triangle turned: the counts are right, three edges are inverse.
  Soup s = tetrahedron();
  std::swap_ranges(s.begin() + 12, s.begin() + 15, s.begin() + 15);
  RunState rf;
  Prepared p = prepare(rf, s);
  EXPECT_EQ(p.status, 0);
  EXPECT_FALSE(p.result);
  EXPECT_EQ(rf.surforiented, I({0}));
  EXPECT_TRUE(contains(p.out, "\n *** WARNING: 1\n STL file part.stl has 3 inversely oriented edges.\n"
                              " Consider repairing the STL with Tessero before continuing.\n \n"));
  checkmesh(rf);
  // A single triangle: open edges, the plain block and the numbered warning, no orientation
  // check. The name is the job's name of the surface, not the path that was read.
  RunState rs;
  rs.stlfiles.v = {"other.stl", "part.stl"};
  rs.stlfiles.n = rs.curstlid = 2;
  rs.stlpath = "elsewhere/part_ls_repair.stl";
  p = prepare(rs, {0, 0, 0, 1, 0, 0, 0, 1, 0});
  EXPECT_EQ(p.status, -1);
  EXPECT_EQ(rs.surfwatertight, I({-1, 0}));
  checkmesh(rs);
  EXPECT_TRUE(contains(p.out, "\n\n WARNING\n STL file part.stl is not watertight.\n"
                              " Edges with   1 triangle  = 3\n Edges with   2 triangles = 0\n"
                              " Edges with > 2 triangles = 0\n\n"
                              " Consider repairing the STL (e.g. with Tessero) before continuing.\n\n"
                              " Euler characteristic   = 1\n"));
  EXPECT_TRUE(contains(p.out, " *** WARNING: 1\n STL file part.stl has non-manifold edges\n \n"
                              " Use a larger tolerance multiplier, or repair the geometry in Tessero\n \n"));

  // Three triangles on one edge: the first two are in the tables, the third only in edgevrt,
  // edgelen and triedge (all of which the reference checks).
  RunState r3;
  p = prepare(r3, {0, 0, 0, 4, 0, 0, 1, 3, 0, 4, 0, 0, 0, 0, 0, 1, -3, 0, 1, 0, 3, 0, 0, 0, 4, 0, 0});
  EXPECT_EQ(p.status, -1);
  checkmesh(r3);
  EXPECT_TRUE(contains(p.out, " Edges with   1 triangle  = 6\n Edges with   2 triangles = 0\n"
                              " Edges with > 2 triangles = 1\n"));
}

TEST(PrepareSurface, MergedCorners) {
  // A tetrahedron and a triangle with two equal corners: the zero side does not count in the
  // minimum edge and is an edge with equal ends and one triangle; the other two sides lie on
  // one edge, which gains one triangle for both (2 + 1).
  Soup s = tetrahedron(2.0);
  s.insert(s.end(), {0, 0, 0, 0, 0, 0, 2, 0, 0});
  RunState rs;
  Prepared p = prepare(rs, s);
  EXPECT_NEAR(rs.minedgelen, 2.0, 1e-15);
  EXPECT_EQ(p.status, -1);
  EXPECT_EQ(rs.nvrt, 4);
  EXPECT_EQ(rs.stltri[12], rs.stltri[13]);
  const int32_t ez = rs.triedge[12] - 1;
  EXPECT_EQ(rs.edgevrt[2 * ez], rs.edgevrt[2 * ez + 1]);
  EXPECT_EQ(rs.edgelen[ez], 0.0);
  EXPECT_EQ(I(rs.edgetri.begin() + 2 * ez, rs.edgetri.begin() + 2 * ez + 2), I({5, 0}));
  EXPECT_EQ(rs.triedge[13], rs.triedge[14]);
  EXPECT_TRUE(contains(p.out, " Edges with   1 triangle  = 1\n Edges with   2 triangles = 5\n"
                              " Edges with > 2 triangles = 1\n"));
  // Alone, such a triangle's shared edge fills its four neighbour slots from its two sides.
  RunState r1;
  prepare(r1, {0, 0, 0, 0, 0, 0, 2, 0, 0});
  const int32_t e = r1.triedge[1] - 1, z = r1.triedge[0];
  EXPECT_EQ(I(r1.edgenbr.begin() + 4 * e, r1.edgenbr.begin() + 4 * e + 4), I({e + 1, z, z, e + 1}));
}

TEST(PrepareSurface, ToleranceAndSnap) {
  // Cube 100 with a minimum edge 10: edge rule 1.0, box rule 1e-4. Box 1e4 with a minimum
  // edge 1e-4: edge rule 1e-5, box rule 1e-2. Either rule can be forced.
  Soup c100 = cube(100.0);
  c100.insert(c100.end(), {0, 0, 0, 10, 0, 0, 0, 10, 0});
  const Soup b1e4 = {0, 0, 0, 1e4, 0, 0, 0, 1e4, 0, 0, 0, 0, 1e-4, 0, 0, 0, 1e-4, 0};
  const std::tuple<const Soup *, bool, bool, double, double> cases[] = {  // by edge, by box
      {&c100, false, false, 10, 1e-4}, {&c100, true, false, 10, 1.0}, {&c100, false, true, 10, 1e-4},
      {&b1e4, false, false, 1e-4, 1e-5}};
  for (const auto &[soup, byedge, bybox, minedge, tol] : cases) {
    RunState rs;
    rs.tolbyedge = byedge, rs.tolbybox = bybox;
    Prepared p = prepare(rs, *soup);
    EXPECT_NEAR(valueafter(p.out, "Minimum edge length = "), minedge, 1e-12 * minedge);
    EXPECT_NEAR(valueafter(p.out, "Absolute tolerance = "), tol, 1e-12 * tol);
    EXPECT_FALSE(contains(p.out, "Increasing tolerance"));
  }
  // All corners equal: minimum edge 2D = 0, and the tolerance rises to the machine precision.
  // A large box with a tiny edge: the floor is the integer precision of the largest axis.
  RunState rz, rw;
  Prepared p = prepare(rz, {3, 3, 3, 3, 3, 3, 3, 3, 3});
  EXPECT_EQ(rz.stlvrt, V({3, 3, 3}));
  EXPECT_TRUE(contains(p.out, " *** WARNING: 1\n Absolute tolerance must be greater than:\n"
                              " 2.220446049250313e-16\n \n Increasing tolerance to 2.220446049250313e-16\n \n"));
  p = prepare(rw, {0, 0, 0, 0x1p20, 0, 0, 0, 1e-20, 0});
  EXPECT_TRUE(contains(p.out, " Increasing tolerance to " + wf::numtext(0x1p-43) + "\n"));

  // Box [-32, 32]^3 and a pitch of exactly 1 (box rule, 1/64 of 64): the lattice points are
  // the integers, the box centre is 0, and halves round away from zero.
  RunState rs;
  rs.tolbybox = true;
  rs.reltolbox = 1.0 / 64.0;
  p = prepare(rs, {-32, -32, -32, 32, 32, 32, 0.5, -0.5, 2.5,
                  -2.5, 0.49, -0.49, 1.5, 0.4, 0.6, 0.1, 0.4, 0.3});
  EXPECT_EQ(valueafter(p.out, "Absolute tolerance = "), 1.0);
  EXPECT_EQ(rs.stlvrt, V({-32, -32, -32, -3, 0, 0, 0, 0, 0, 1, -1, 3, 2, 0, 1, 32, 32, 32}));
  EXPECT_FALSE(std::signbit(rs.stlvrt[5]));  // -0.49 went through the integer: no -0
  EXPECT_EQ(rs.stltri, I({1, 6, 4, 2, 5, 3}));
}

TEST(Normals, WorkedExamples) {
  // Raw, full: unit right triangle; twice as large; reversed; two equal corners; a general
  // triangle with u = (1, 2, 4), v = (-2, -1, 3), n = (10, -11, 3).
  RunState rs;
  rs.stlvrt = {0, 0, 0, 1, 0, 0, 0, 1, 0,  0, 0, 0, 2, 0, 0, 0, 2, 0,  0, 0, 0, 0, 1, 0, 1, 0, 0,
               1, 2, 3, 1, 2, 3, 4, -5, 6,  1, 1, 1, 2, 3, 5, -1, 0, 4};
  rs.ntri = 5;
  EXPECT_EQ(captured([&] { wf::normals(rs, false, true, false); }), " Calculating surface normals\n");
  EXPECT_EQ(rs.nrgtri, V({0, 0, 1, 0, 0, 4, 0, 0, -1, 0, 0, 0, 10, -11, 3}));
  EXPECT_EQ(rs.ugtri, V({1, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 0, 1, 2, 4}));
  EXPECT_EQ(rs.vgtri, V({0, 1, 0, 0, 2, 0, 1, 0, 0, 3, -7, 3, -2, -1, 3}));
  EXPECT_EQ(rs.nnsqgtri, V({1, 16, 1, 0, 230}));
  EXPECT_EQ(rs.uugtri, V({1, 4, 1, 0, 21}));
  EXPECT_EQ(rs.uvgtri, V({0, 0, 0, 0, 8}));
  EXPECT_EQ(rs.vvgtri, V({1, 4, 1, 67, 14}));
  EXPECT_EQ(rs.detgtri, V({1, 16, 1, 0, 21 * 14 - 64}));
  EXPECT_EQ(rs.dengtri, V({2, 8, 2, 67, 21 - 16 + 14}));
  // Indexed, basic, quiet: the tetrahedron of edge 3 has outward faces of twice their area,
  // and no full arrays appear.
  RunState ri;
  ri.stlvrt = {0, 0, 0, 3, 0, 0, 0, 3, 0, 0, 0, 3};
  ri.stltri = {1, 3, 2, 1, 2, 4, 1, 4, 3, 2, 3, 4};
  ri.ntri = 4;
  EXPECT_EQ(captured([&] { wf::normals(ri, true, false, true); }), "");
  EXPECT_EQ(ri.nrgtri, V({0, 0, -9, 0, -9, 0, -9, 0, 0, 9, 9, 9}));
  EXPECT_TRUE(ri.ugtri.empty() && ri.detgtri.empty());
}
