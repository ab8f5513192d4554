// SPDX-License-Identifier: GPL-2.0-or-later
// From soup to checked mesh: tolerance, snapping, vertex merging, the edge tables against an
// independent reference built with a map, and the watertight and orientation checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "control/textio.h"
#include "surface/surfacemesh.h"
#include "surfacefixtures.h"

using namespace wft;
using wf::RunState;

namespace {

struct Prepared {
  int status = 99;
  bool result = false;
  std::string out;
};

Prepared prepare(RunState &rs, const Soup &s, const std::string &name = "part.stl") {
  if (rs.stlfiles.n == 0) onesurface(rs, name);
  setsoup(rs, s);
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

// Checks every edge table against a reference made from the triangles with an ordered map.
// Meant for triangles with three distinct vertices.
void checktables(const RunState &rs) {
  using Key = std::pair<int32_t, int32_t>;
  struct Side {
    size_t t;
    int k;
  };
  const int ca[3] = {0, 1, 2}, cb[3] = {1, 2, 0}, opp[3] = {2, 0, 1};
  std::map<Key, std::vector<Side>> sides;
  const size_t ntri = static_cast<size_t>(rs.ntri);
  for (size_t t = 0; t < ntri; ++t)
    for (int k = 0; k < 3; ++k) {
      int32_t a = rs.stltri[3 * t + ca[k]], b = rs.stltri[3 * t + cb[k]];
      ASSERT_NE(a, b) << "checktables wants proper triangles";
      sides[{std::min(a, b), std::max(a, b)}].push_back({t, k});
    }
  ASSERT_EQ(rs.nedge, static_cast<int32_t>(sides.size()));
  ASSERT_EQ(rs.edgevrt.size(), 2 * sides.size());
  std::map<Key, int32_t> number;
  int32_t e = 0;
  for (const auto &[key, list] : sides) number[key] = ++e;
  e = 0;
  for (const auto &[key, list] : sides) {
    const size_t i = static_cast<size_t>(e++);
    const Side &last = list.back();
    const int32_t *lt = &rs.stltri[3 * last.t];
    EXPECT_EQ(rs.edgevrt[2 * i], lt[ca[last.k]]) << "edge " << i + 1;
    EXPECT_EQ(rs.edgevrt[2 * i + 1], lt[cb[last.k]]) << "edge " << i + 1;
    EXPECT_DOUBLE_EQ(rs.edgelen[i], std::sqrt(rs.triedgesq[3 * last.t + last.k]));
    for (size_t j = 0; j < 2; ++j) {
      if (j < list.size()) {
        const Side &sd = list[j];
        const int32_t *tr = &rs.stltri[3 * sd.t];
        EXPECT_EQ(rs.edgetri[2 * i + j], static_cast<int32_t>(sd.t + 1)) << "edge " << i + 1;
        EXPECT_EQ(rs.edgeopp[2 * i + j], tr[opp[sd.k]]) << "edge " << i + 1;
        int o1 = (sd.k + 1) % 3, o2 = (sd.k + 2) % 3;
        EXPECT_EQ(rs.edgenbr[4 * i + 2 * j], rs.triedge[3 * sd.t + o1]);
        EXPECT_EQ(rs.edgenbr[4 * i + 2 * j + 1], rs.triedge[3 * sd.t + o2]);
      } else {
        EXPECT_EQ(rs.edgetri[2 * i + j], 0);
        EXPECT_EQ(rs.edgeopp[2 * i + j], 0);
        EXPECT_EQ(rs.edgenbr[4 * i + 2 * j], 0);
        EXPECT_EQ(rs.edgenbr[4 * i + 2 * j + 1], 0);
      }
    }
    for (const Side &sd : list) EXPECT_EQ(rs.triedge[3 * sd.t + sd.k], static_cast<int32_t>(i + 1));
  }
}

// On a closed, consistently oriented surface the neighbours run round the two triangles:
// V1 to O1, O1 to V2, V2 to O2, O2 to V1.
void checkring(const RunState &rs) {
  std::map<std::pair<int32_t, int32_t>, int32_t> number;
  for (int32_t e = 0; e < rs.nedge; ++e) {
    int32_t a = rs.edgevrt[2 * e], b = rs.edgevrt[2 * e + 1];
    number[{std::min(a, b), std::max(a, b)}] = e + 1;
  }
  auto edge = [&](int32_t a, int32_t b) { return number.at({std::min(a, b), std::max(a, b)}); };
  for (int32_t e = 0; e < rs.nedge; ++e) {
    int32_t v1 = rs.edgevrt[2 * e], v2 = rs.edgevrt[2 * e + 1];
    int32_t o1 = rs.edgeopp[2 * e], o2 = rs.edgeopp[2 * e + 1];
    EXPECT_EQ(rs.edgenbr[4 * e], edge(v1, o1));
    EXPECT_EQ(rs.edgenbr[4 * e + 1], edge(o1, v2));
    EXPECT_EQ(rs.edgenbr[4 * e + 2], edge(v2, o2));
    EXPECT_EQ(rs.edgenbr[4 * e + 3], edge(o2, v1));
  }
}

void expectsorted(const RunState &rs) {
  for (int32_t v = 1; v < rs.nvrt; ++v) {
    const double *a = &rs.stlvrt[3 * (v - 1)], *b = &rs.stlvrt[3 * v];
    EXPECT_TRUE(std::lexicographical_compare(a, a + 3, b, b + 3)) << "vertex " << v;
  }
}

}  // namespace

TEST(PrepareSurface, ClosedTetrahedronAndCube) {
  RunState rs;
  Prepared p = prepare(rs, tetrahedron());
  EXPECT_EQ(p.status, 0);
  EXPECT_TRUE(p.result);
  EXPECT_EQ(rs.nvrt, 4);
  EXPECT_EQ(rs.nedge, 6);
  EXPECT_TRUE(rs.rawvrt.empty());
  EXPECT_TRUE(rs.edgesurf.empty());  // released after the orientation check
  EXPECT_EQ(rs.surfwatertight, std::vector<int32_t>({-1}));
  EXPECT_EQ(rs.surforiented, std::vector<int32_t>({-1}));
  expectsorted(rs);
  checktables(rs);
  checkring(rs);
  for (int32_t e = 0; e < 6; ++e) {
    EXPECT_NE(rs.edgetri[2 * e], 0);
    EXPECT_NE(rs.edgetri[2 * e + 1], 0);
  }
  // The corner order of the file is kept: triangle 1 is (A, C, B) with A < D < C < B.
  EXPECT_EQ(std::vector<int32_t>(rs.stltri.begin(), rs.stltri.begin() + 3),
            std::vector<int32_t>({1, 3, 4}));
  EXPECT_NEAR(rs.minedgelen, 1.0, 1e-15);
  EXPECT_NEAR(rs.triedgesq[0], 1.0, 1e-9);  // A-C
  EXPECT_NEAR(rs.triedgesq[1], 2.0, 1e-9);  // C-B
  const std::vector<std::string> expect = {
      " Minimum edge length = 1",
      " Machine precision = 2.220446049250313e-16",
      " STL precision for 8-byte integers = 1.0842021724855044e-19",
      " Absolute tolerance = 1e-06",
      "",
      " Equivalencing vertices",
      " Number of unique vertices = 4",
      " Finished vertex equivalencing",
      "",
      " Equivalencing STL edges",
      " Number of unique edges = 6",
      " Euler characteristic   = 2",
      " Finished edge equivalencing",
      ""};
  EXPECT_EQ(splitlines(p.out), expect);
  EXPECT_EQ(rs.nwarnings, 0);

  RunState rc;
  p = prepare(rc, cube(2.0, 5, 5, 5));
  EXPECT_EQ(p.status, 0);
  EXPECT_TRUE(p.result);
  EXPECT_EQ(rc.nvrt, 8);
  EXPECT_EQ(rc.nedge, 18);
  EXPECT_TRUE(hasline(p.out, " Euler characteristic   = 2"));
  expectsorted(rc);
  checktables(rc);
  checkring(rc);
}

TEST(PrepareSurface, SphereAndTriangleOrder) {
  Soup s = sphere(40, 64, 25.0);
  RunState rs;
  Prepared p = prepare(rs, s);
  EXPECT_EQ(p.status, 0);
  EXPECT_TRUE(p.result);
  EXPECT_EQ(rs.nvrt, 39 * 64 + 2);
  EXPECT_EQ(rs.nvrt + rs.ntri - rs.nedge, 2);
  checktables(rs);
  checkring(rs);
  expectsorted(rs);
  // Every triangle keeps its corners, within the tolerance of the snap.
  for (size_t t = 0; t < static_cast<size_t>(rs.ntri); ++t)
    for (int c = 0; c < 3; ++c) {
      double v[3];
      meshcorner(rs, t, c, v);
      for (int k = 0; k < 3; ++k) ASSERT_NEAR(v[k], s[9 * t + 3 * c + k], 1e-4);
    }

  // The same surface in another triangle order, corners turned round within each triangle,
  // gives the same vertices bit for bit.
  std::vector<size_t> order(s.size() / 9);
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), std::mt19937(3));
  Soup shuffled;
  for (size_t i : order) {
    const double *t = &s[9 * i];
    shuffled.insert(shuffled.end(), t + 3, t + 9);
    shuffled.insert(shuffled.end(), t, t + 3);
  }
  RunState r2;
  p = prepare(r2, shuffled);
  EXPECT_EQ(p.status, 0);
  EXPECT_TRUE(p.result);
  EXPECT_EQ(r2.stlvrt, rs.stlvrt);
  EXPECT_EQ(r2.nedge, rs.nedge);
  checktables(r2);
}

TEST(PrepareSurface, FlippedTriangle) {
  Soup s = tetrahedron();
  std::swap_ranges(s.begin() + 9 + 3, s.begin() + 9 + 6, s.begin() + 9 + 6);  // turn triangle 2
  RunState rs;
  Prepared p = prepare(rs, s);
  EXPECT_EQ(p.status, 0);  // the counts are right
  EXPECT_FALSE(p.result);
  EXPECT_EQ(rs.surforiented, std::vector<int32_t>({0}));
  EXPECT_EQ(rs.surfwatertight, std::vector<int32_t>({-1}));
  EXPECT_EQ(rs.nwarnings, 1);
  EXPECT_TRUE(contains(p.out, "\n *** WARNING: 1\n STL file part.stl has 3 inversely oriented edges.\n"
                              " Consider repairing the STL with Tessero before continuing.\n \n"));
  EXPECT_FALSE(hasline(p.out, " WARNING"));
  checktables(rs);
}

TEST(PrepareSurface, OpenAndOverloadedEdges) {
  // A single triangle: three open edges, the plain block and the numbered warning. The name
  // is the job's name of the surface, not the path that was read.
  RunState rs;
  rs.stlfiles.v = {"other.stl", "part.stl"};
  rs.stlfiles.n = 2;
  rs.curstlid = 2;
  rs.stlpath = "elsewhere/part_ls_repair.stl";
  bool result = true;
  setsoup(rs, {0, 0, 0, 1, 0, 0, 0, 1, 0});
  int status = 0;
  std::string out = captured([&] { wf::preparesurface(rs, status, true, false, result); });
  EXPECT_EQ(status, -1);
  EXPECT_TRUE(result);  // untouched: no orientation check on a surface with bad edges
  EXPECT_EQ(rs.nvrt, 3);
  EXPECT_EQ(rs.nedge, 3);
  EXPECT_EQ(rs.surfwatertight, std::vector<int32_t>({-1, 0}));
  EXPECT_EQ(rs.warnstlname, "part.stl");
  checktables(rs);
  EXPECT_TRUE(contains(out, "\n\n WARNING\n STL file part.stl is not watertight.\n"
                            " Edges with   1 triangle  = 3\n"
                            " Edges with   2 triangles = 0\n"
                            " Edges with > 2 triangles = 0\n\n"
                            " Consider repairing the STL (e.g. with Tessero) before continuing.\n\n"
                            " Euler characteristic   = 1\n"));
  EXPECT_TRUE(contains(out, " *** WARNING: 1\n STL file part.stl has non-manifold edges\n \n"
                            " Use a larger tolerance multiplier, or repair the geometry in Tessero\n \n"));
  EXPECT_EQ(rs.nwarnings, 1);

  // Three triangles on one edge (a, b): the first two are in the tables, the third only in
  // edgevrt, edgelen and triedge.
  double a[3] = {0, 0, 0}, b[3] = {4, 0, 0}, c[3] = {1, 3, 0}, d[3] = {1, -3, 0}, f[3] = {1, 0, 3};
  Soup s;
  addtri(s, a, b, c);
  addtri(s, b, a, d);
  addtri(s, f, a, b);
  RunState r3;
  Prepared p = prepare(r3, s);
  EXPECT_EQ(p.status, -1);
  checktables(r3);
  EXPECT_TRUE(contains(p.out, " Edges with   1 triangle  = 6\n Edges with   2 triangles = 0\n"
                              " Edges with > 2 triangles = 1\n"));
  const int32_t e = r3.triedge[3 * 2 + 1] - 1;  // side 2 of triangle 3 runs from a to b
  EXPECT_EQ(r3.triedge[0] - 1, e);
  EXPECT_EQ(r3.edgetri[2 * e], 1);
  EXPECT_EQ(r3.edgetri[2 * e + 1], 2);
  EXPECT_EQ(r3.edgeopp[2 * e], r3.stltri[2]);      // c
  EXPECT_EQ(r3.edgeopp[2 * e + 1], r3.stltri[5]);  // d
  EXPECT_EQ(r3.edgevrt[2 * e], r3.stltri[7]);      // a, as triangle 3 runs
  EXPECT_EQ(r3.edgevrt[2 * e + 1], r3.stltri[8]);  // b
  EXPECT_EQ(r3.edgenbr[4 * e + 2], r3.triedge[4]);
  EXPECT_EQ(r3.edgenbr[4 * e + 3], r3.triedge[5]);

  // Twelve separate triangles: the Euler characteristic follows the console's integer mode.
  Soup many;
  for (int i = 0; i < 12; ++i) {
    double p1[3] = {10.0 * i, 0, 0}, p2[3] = {10.0 * i + 1, 0, 0}, p3[3] = {10.0 * i, 1, 0};
    addtri(many, p1, p2, p3);
  }
  RunState rm;
  p = prepare(rm, many);
  EXPECT_TRUE(hasline(p.out, " Euler characteristic   = 12"));
  EXPECT_TRUE(hasline(p.out, " Edges with   1 triangle  = 36"));
  RunState rh;
  rh.conhex = true;
  p = prepare(rh, many);
  EXPECT_TRUE(hasline(p.out, " Euler characteristic   = C"));
}

TEST(PrepareSurface, MergedAndDegenerateCorners) {
  // A closed tetrahedron and one extra triangle with two equal corners: the zero side does
  // not count in the minimum edge, and its edge has both ends equal and one triangle.
  Soup s = tetrahedron(2.0);
  s.insert(s.end(), {0, 0, 0, 0, 0, 0, 2, 0, 0});
  RunState rs;
  Prepared p = prepare(rs, s);
  EXPECT_NEAR(rs.minedgelen, 2.0, 1e-15);
  EXPECT_EQ(p.status, -1);
  EXPECT_EQ(rs.nvrt, 4);
  EXPECT_EQ(rs.stltri[12], rs.stltri[13]);
  const int32_t ez = rs.triedge[12] - 1;  // side 1: corners 1 and 2, the zero side
  EXPECT_EQ(rs.edgevrt[2 * ez], rs.edgevrt[2 * ez + 1]);
  EXPECT_EQ(rs.edgelen[ez], 0.0);
  EXPECT_EQ(rs.edgetri[2 * ez], 5);
  EXPECT_EQ(rs.edgetri[2 * ez + 1], 0);
  // Sides 2 and 3 lie on one edge, which gains one triangle for both: 2 + 1.
  EXPECT_EQ(rs.triedge[13], rs.triedge[14]);
  EXPECT_TRUE(contains(p.out, " Edges with   1 triangle  = 1\n Edges with   2 triangles = 5\n"
                              " Edges with > 2 triangles = 1\n"));

  // Alone, such a triangle gives two edges with one triangle each; the shared edge fills
  // its four neighbour slots from the two sides.
  RunState r1;
  p = prepare(r1, {0, 0, 0, 0, 0, 0, 2, 0, 0});
  EXPECT_EQ(r1.nvrt, 2);
  EXPECT_EQ(r1.nedge, 2);
  EXPECT_TRUE(contains(p.out, " Edges with   1 triangle  = 2\n Edges with   2 triangles = 0\n"));
  const int32_t e = r1.triedge[1] - 1;
  const int32_t z = r1.triedge[0];
  EXPECT_EQ(r1.edgetri[2 * e], 1);
  EXPECT_EQ(r1.edgetri[2 * e + 1], 0);
  EXPECT_EQ(r1.edgeopp[2 * e], r1.stltri[1]);  // opposite of side 3, written last
  EXPECT_EQ(std::vector<int32_t>(r1.edgenbr.begin() + 4 * e, r1.edgenbr.begin() + 4 * e + 4),
            std::vector<int32_t>({e + 1, z, z, e + 1}));
  EXPECT_EQ(r1.edgevrt[2 * e], r1.stltri[2]);  // side 3 runs from corner 3 to corner 1
  EXPECT_EQ(r1.edgevrt[2 * e + 1], r1.stltri[0]);

  // Corners of two triangles a hundredth of the tolerance apart merge.
  Soup two = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 0, 0, 1, 1, 0, 1e-8, 1, 0};
  RunState r2;
  p = prepare(r2, two);
  EXPECT_EQ(r2.nvrt, 4);
  EXPECT_EQ(r2.nedge, 5);
}

TEST(PrepareSurface, ToleranceChoice) {
  // Box 100, minimum edge 10: edge-based 1.0, box-based 1e-4.
  Soup s = cube(100.0);
  s.insert(s.end(), {0, 0, 0, 10, 0, 0, 0, 10, 0});
  RunState rs;
  Prepared p = prepare(rs, s);
  EXPECT_NEAR(valueafter(p.out, "Minimum edge length = "), 10.0, 1e-12);
  EXPECT_NEAR(valueafter(p.out, "Absolute tolerance = "), 1e-4, 1e-18);
  EXPECT_NEAR(valueafter(p.out, "STL precision for 8-byte integers = "), 100 * 0x1p-63, 1e-30);
  // The same with either rule forced.
  RunState re;
  re.tolbyedge = true;
  p = prepare(re, s);
  EXPECT_NEAR(valueafter(p.out, "Absolute tolerance = "), 1.0, 1e-15);
  RunState rb;
  rb.tolbybox = true;
  rb.reltoledge = 1e-9;  // would be smaller, but the box rule is forced
  p = prepare(rb, s);
  EXPECT_NEAR(valueafter(p.out, "Absolute tolerance = "), 1e-4, 1e-18);

  // Box 1e4, minimum edge 1e-4: edge-based 1e-5, box-based 1e-2.
  Soup t = {0, 0, 0, 1e4, 0, 0, 0, 1e4, 0, 0, 0, 0, 1e-4, 0, 0, 0, 1e-4, 0};
  RunState rt;
  p = prepare(rt, t);
  EXPECT_NEAR(valueafter(p.out, "Absolute tolerance = "), 1e-5, 1e-18);
  EXPECT_EQ(rt.nwarnings, 1);  // the open surface, not the tolerance

  // All corners equal: minimum edge 2D = 0, the tolerance rises to the machine precision.
  RunState rz;
  p = prepare(rz, {3, 3, 3, 3, 3, 3, 3, 3, 3});
  EXPECT_EQ(rz.minedgelen, 0.0);
  EXPECT_EQ(rz.nvrt, 1);
  EXPECT_TRUE(contains(p.out, " *** WARNING: 1\n Absolute tolerance must be greater than:\n"
                              " 2.220446049250313e-16\n \n"
                              " Increasing tolerance to 2.220446049250313e-16\n \n"));
  EXPECT_EQ(rz.stlvrt, std::vector<double>({3, 3, 3}));

  // A large box with a tiny edge: the floor is the integer precision of the largest axis.
  Soup w = {0, 0, 0, 0x1p20, 0, 0, 0, 1e-20, 0};
  RunState rw;
  p = prepare(rw, w);
  EXPECT_TRUE(contains(p.out, " Increasing tolerance to " + wf::numtext(0x1p-43) + "\n"));
}

TEST(PrepareSurface, SnapRoundsHalvesAwayFromZero) {
  // Box [-32, 32]^3 and a pitch of exactly 1 (box rule, 1/64 of 64): the lattice points are
  // the integers, and the box centre is 0.
  RunState rs;
  rs.tolbybox = true;
  rs.reltolbox = 1.0 / 64.0;
  Soup s = {-32, -32, -32, 32, 32, 32, 0.5, -0.5, 2.5,   // halves
            -2.5, 0.49, -0.49, 1.5, 0.4, 0.6, 0.1, 0.4, 0.3};
  Prepared p = prepare(rs, s);
  EXPECT_NEAR(valueafter(p.out, "Absolute tolerance = "), 1.0, 0.0);
  std::vector<double> expect = {-32, -32, -32,  // sorted by x, then y, then z
                                -3, 0, 0,      // -2.5, 0.49, -0.49
                                0, 0, 0,       // 0.1, 0.4, 0.3
                                1, -1, 3,      // 0.5, -0.5, 2.5
                                2, 0, 1,       // 1.5, 0.4, 0.6: 0.4 and 0.6 part at 0.5
                                32, 32, 32};
  EXPECT_EQ(rs.stlvrt, expect);
  EXPECT_FALSE(std::signbit(rs.stlvrt[5]));  // -0.49 went through the integer: no -0
  EXPECT_EQ(std::vector<int32_t>(rs.stltri.begin(), rs.stltri.end()),
            std::vector<int32_t>({1, 6, 4, 2, 5, 3}));
}
