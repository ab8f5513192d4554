// SPDX-License-Identifier: GPL-2.0-or-later
// Small builders for the warp tests: node lattices with a displacement field, triangle query
// sets, a hand-built two-triangle square with its edge tables, and closed cube surfaces
// taken through the surface preparation.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <vector>

#include "control/runstate.h"
#include "surface/normals.h"
#include "surface/surfacemesh.h"
#include "warp/initgrid.h"

namespace wft {

using P3 = std::array<double, 3>;
using Field = std::function<P3(const P3 &)>;

// Settings as initrun derives them.
inline void derive(wf::RunState &rs) {
  rs.snaptolsq = rs.snaptol * rs.snaptol;
  rs.refinetolsq = rs.refinetol * rs.refinetol;
  rs.halfexponent = 0.5 * rs.avgexponent;
}

// Nodes as given, all active, displacements from the field, grid built.
inline void setnodes(wf::RunState &rs, const std::vector<P3> &xyz, const Field &field) {
  rs.nnodes = static_cast<int32_t>(xyz.size());
  rs.nodexyz.clear();
  rs.nodedisp.clear();
  for (const P3 &p : xyz) {
    P3 d = field(p);
    rs.nodexyz.insert(rs.nodexyz.end(), p.begin(), p.end());
    rs.nodedisp.insert(rs.nodedisp.end(), d.begin(), d.end());
  }
  rs.nodeactive.assign(xyz.size(), 255);
  wf::initgrid(rs);
}

// A lattice of n[0] x n[1] x n[2] nodes from lo with the given spacing.
inline std::vector<P3> lattice(const P3 &lo, double spacing, const std::array<int, 3> &n) {
  std::vector<P3> out;
  for (int k = 0; k < n[2]; ++k)
    for (int j = 0; j < n[1]; ++j)
      for (int i = 0; i < n[0]; ++i)
        out.push_back({lo[0] + i * spacing, lo[1] + j * spacing, lo[2] + k * spacing});
  return out;
}

// A query set from triangles given by their corners, terms made by the normals step.
inline wf::TriData queryset(const std::vector<std::array<P3, 3>> &tris) {
  wf::RunState tmp;
  tmp.ntri = static_cast<int32_t>(tris.size());
  tmp.nvrt = 3 * tmp.ntri;
  for (const auto &t : tris)
    for (const P3 &c : t) tmp.stlvrt.insert(tmp.stlvrt.end(), c.begin(), c.end());
  wf::normals(tmp, true, true, false);
  wf::TriData s;
  s.ntri = tmp.ntri;
  s.nvrt = tmp.nvrt;
  s.corners = tmp.stlvrt;
  s.e0 = tmp.ugtri;
  s.e1 = tmp.vgtri;
  s.a = tmp.uugtri;
  s.b = tmp.uvgtri;
  s.c = tmp.vvgtri;
  s.det = tmp.detgtri;
  s.den = tmp.dengtri;
  s.normal = tmp.nrgtri;
  s.nnsq = tmp.nnsqgtri;
  return s;
}

// Two large triangles covering the plane z = h over [-50, 50]^2.
inline wf::TriData planeset(double h) {
  return queryset({{P3{-50, -50, h}, P3{50, -50, h}, P3{50, 50, h}},
                   {P3{-50, -50, h}, P3{50, 50, h}, P3{-50, 50, h}}});
}

inline void setbox(wf::BBox &box, const std::vector<double> &xyz) {
  for (int a = 0; a < 3; ++a) {
    double lo = xyz.empty() ? 0 : xyz[a], hi = lo;
    for (size_t i = a; i < xyz.size(); i += 3) {
      lo = std::min(lo, xyz[i]);
      hi = std::max(hi, xyz[i]);
    }
    box.min[a] = lo;
    box.max[a] = hi;
    box.size[a] = hi - lo;
    box.centre[a] = (lo + hi) * 0.5;
  }
}

// The square of side 2 in z = 0: vertices 1 (0,0), 2 (0,2), 3 (2,0), 4 (2,2); triangles
// (1,3,4) and (1,4,2); edges 1-2, 1-3, 1-4 (the diagonal), 2-4, 3-4 with the tables that the
// edge equivalencing builds for it.
inline void squaresurface(wf::RunState &rs) {
  rs.nvrt = 4;
  rs.stlvrt = {0, 0, 0, 0, 2, 0, 2, 0, 0, 2, 2, 0};
  rs.ntri = 2;
  rs.stltri = {1, 3, 4, 1, 4, 2};
  rs.nedge = 5;
  rs.edgevrt = {2, 1, 1, 3, 1, 4, 4, 2, 3, 4};
  rs.edgetri = {2, 0, 1, 0, 1, 2, 2, 0, 1, 0};
  rs.edgeopp = {4, 0, 4, 0, 3, 2, 1, 0, 1, 0};
  rs.edgenbr = {3, 4, 0, 0, 5, 3, 0, 0, 2, 5, 4, 1, 1, 3, 0, 0, 3, 2, 0, 0};
  rs.edgelen = {2, 2, std::sqrt(8.0), 2, 2};
  setbox(rs.stlbbox, rs.stlvrt);
}

// Triangle soup of the closed cube [0,L]^3, each face in n x n squares, outward oriented.
inline std::vector<double> cubesoup(double L, int n, const P3 &shift = {0, 0, 0}) {
  struct Face {
    P3 o, u, v;
  };
  const Face faces[6] = {{{0, 0, 0}, {0, L, 0}, {L, 0, 0}}, {{0, 0, L}, {L, 0, 0}, {0, L, 0}},
                         {{0, 0, 0}, {L, 0, 0}, {0, 0, L}}, {{0, L, 0}, {0, 0, L}, {L, 0, 0}},
                         {{0, 0, 0}, {0, 0, L}, {0, L, 0}}, {{L, 0, 0}, {0, L, 0}, {0, 0, L}}};
  std::vector<double> out;
  out.reserve(static_cast<size_t>(6) * n * n * 18);
  auto at = [&](const Face &f, int i, int j) {
    P3 p;
    for (int a = 0; a < 3; ++a)
      p[a] = f.o[a] + (static_cast<double>(i) / n) * f.u[a] + (static_cast<double>(j) / n) * f.v[a] +
             shift[a];
    return p;
  };
  auto put = [&](const P3 &p) { out.insert(out.end(), p.begin(), p.end()); };
  for (const Face &f : faces)
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i) {
        P3 p00 = at(f, i, j), p10 = at(f, i + 1, j), p11 = at(f, i + 1, j + 1),
           p01 = at(f, i, j + 1);
        put(p00), put(p10), put(p11);
        put(p00), put(p11), put(p01);
      }
  return out;
}

// A triangle soup through the surface preparation (merge, edges, checks).
inline int preparesoup(wf::RunState &rs, const std::vector<double> &soup) {
  rs.rawvrt = soup;
  rs.nrawvrt = static_cast<int32_t>(soup.size() / 3);
  rs.ntri = rs.nrawvrt / 3;
  setbox(rs.stlbbox, soup);
  if (rs.stlfiles.n == 0) {
    rs.stlfiles.v = {"surface.stl"};
    rs.stlfiles.n = 1;
  }
  int status = 0;
  bool result = true;
  wf::preparesurface(rs, status, true, false, result);
  return status;
}

}  // namespace wft
