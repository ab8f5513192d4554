// SPDX-License-Identifier: GPL-2.0-or-later
// Builders for the warp tests: node lattices with a field, query sets, hand-built surfaces.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "control/runstate.h"
#include "surface/normals.h"
#include "surface/surfacemesh.h"
#include "warp/initgrid.h"
#include "warp/warpstl.h"

namespace wft {

using P3 = std::array<double, 3>;
using Field = std::function<P3(const P3 &)>;

inline P3 zerofield(const P3 &) { return {0, 0, 0}; }

// Settings as initrun derives them.
inline void derive(wf::RunState &rs) {
  rs.snaptolsq = rs.snaptol * rs.snaptol;
  rs.refinetolsq = rs.refinetol * rs.refinetol;
  rs.halfexponent = 0.5 * rs.avgexponent;
}

// Nodes as given, all active, displacements from the field, grid built; returns the console.
inline std::string setnodes(wf::RunState &rs, const std::vector<P3> &xyz, const Field &field) {
  derive(rs);
  rs.nnodes = static_cast<int32_t>(xyz.size());
  rs.nodexyz.clear();
  rs.nodedisp.clear();
  for (const P3 &p : xyz) {
    P3 d = field(p);
    rs.nodexyz.insert(rs.nodexyz.end(), p.begin(), p.end());
    rs.nodedisp.insert(rs.nodedisp.end(), d.begin(), d.end());
  }
  rs.nodeactive.assign(xyz.size(), 255);
  testing::internal::CaptureStdout();
  wf::initgrid(rs);
  return testing::internal::GetCapturedStdout();
}

// A lattice of n[0] x n[1] x n[2] nodes from lo with unit spacing, i fastest.
inline std::vector<P3> lattice(const P3 &lo, const std::array<int, 3> &n) {
  std::vector<P3> out;
  for (int k = 0; k < n[2]; ++k)
    for (int j = 0; j < n[1]; ++j)
      for (int i = 0; i < n[0]; ++i) out.push_back({lo[0] + i, lo[1] + j, lo[2] + k});
  return out;
}

// A query set from triangles given by their corners, terms made by the normals step.
inline wf::TriData queryset(const std::vector<std::array<P3, 3>> &tris) {
  wf::RunState t;
  t.ntri = static_cast<int32_t>(tris.size());
  t.nvrt = 3 * t.ntri;
  for (const auto &tri : tris)
    for (const P3 &c : tri) t.stlvrt.insert(t.stlvrt.end(), c.begin(), c.end());
  wf::normals(t, true, true, false);
  wf::TriData s;
  s.ntri = t.ntri;
  s.nvrt = t.nvrt;
  s.corners = t.stlvrt;
  s.e0 = t.ugtri, s.e1 = t.vgtri, s.a = t.uugtri, s.b = t.uvgtri, s.c = t.vvgtri;
  s.det = t.detgtri, s.den = t.dengtri, s.normal = t.nrgtri, s.nnsq = t.nnsqgtri;
  return s;
}

// Two large triangles covering the plane z = h over [-50, 50]^2.
inline wf::TriData planeset(double h) {
  return queryset({{P3{-50, -50, h}, P3{50, -50, h}, P3{50, 50, h}},
                   {P3{-50, -50, h}, P3{50, 50, h}, P3{-50, 50, h}}});
}

// The square of side 2 in z = 0: vertices 1 (0,0), 2 (0,2), 3 (2,0), 4 (2,2); triangles
// (1,3,4) and (1,4,2); edges 1-2, 1-3, 1-4 (the diagonal), 2-4, 3-4 with the tables that the
// edge equivalencing builds for it. The box stays at its zeros: the warp reads only its lowest z.
inline void squaresurface(wf::RunState &rs) {
  rs.nvrt = 4, rs.ntri = 2, rs.nedge = 5;
  rs.stlvrt = {0, 0, 0, 0, 2, 0, 2, 0, 0, 2, 2, 0};
  rs.stltri = {1, 3, 4, 1, 4, 2};
  rs.edgevrt = {2, 1, 1, 3, 1, 4, 4, 2, 3, 4};
  rs.edgetri = {2, 0, 1, 0, 1, 2, 2, 0, 1, 0};
  rs.edgeopp = {4, 0, 4, 0, 3, 2, 1, 0, 1, 0};
  rs.edgenbr = {3, 4, 0, 0, 5, 3, 0, 0, 2, 5, 4, 1, 1, 3, 0, 0, 3, 2, 0, 0};
  rs.edgelen = {2, 2, std::sqrt(8.0), 2, 2};
}

// The closed cube [0,L]^3 as a soup, each face in n x n squares, outward oriented, through the
// surface preparation (merge, edges, checks).
inline void cubesurface(wf::RunState &rs, double L, int n) {
  const P3 faces[6][3] = {{{0, 0, 0}, {0, L, 0}, {L, 0, 0}}, {{0, 0, L}, {L, 0, 0}, {0, L, 0}},
                          {{0, 0, 0}, {L, 0, 0}, {0, 0, L}}, {{0, L, 0}, {0, 0, L}, {L, 0, 0}},
                          {{0, 0, 0}, {0, 0, L}, {0, L, 0}}, {{L, 0, 0}, {0, L, 0}, {0, 0, L}}};
  std::vector<double> &out = rs.rawvrt;
  out.clear();
  auto put = [&](const P3 *f, int i, int j) {
    for (int a = 0; a < 3; ++a) out.push_back(f[0][a] + (double(i) / n) * f[1][a] + (double(j) / n) * f[2][a]);
  };
  for (const auto &f : faces)
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) {
        put(f, i, j), put(f, i + 1, j), put(f, i + 1, j + 1);
        put(f, i, j), put(f, i + 1, j + 1), put(f, i, j + 1);
      }
  rs.nrawvrt = static_cast<int32_t>(out.size() / 3);
  rs.ntri = rs.nrawvrt / 3;
  for (int a = 0; a < 3; ++a)
    rs.stlbbox.max[a] = rs.stlbbox.size[a] = L, rs.stlbbox.centre[a] = L / 2;
  rs.stlfiles.v = {"surface.stl"}, rs.stlfiles.n = 1;
  int status = 0;
  bool result = true;
  testing::internal::CaptureStdout();
  wf::preparesurface(rs, status, true, false, result);
  testing::internal::GetCapturedStdout();
  ASSERT_EQ(status, 0);
}

inline std::string runwarp(wf::RunState &rs) {
  testing::internal::CaptureStdout();
  wf::warpstl(rs);
  return testing::internal::GetCapturedStdout();
}

}  // namespace wft
