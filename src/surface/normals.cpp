// SPDX-License-Identifier: GPL-2.0-or-later
// Facet normals and the per-triangle terms of a closest-point query. Nothing is normalised:
// the normal is the cross product of the two edge vectors from corner 1, twice the area long.
#include "surface/normals.h"

#include <cmath>
#include <cstdint>

#include "control/messages.h"

namespace wf {

namespace {

inline void crossproduct(double *r, const double *a, const double *b) {
  r[0] = a[1] * b[2] - a[2] * b[1];
  r[1] = a[2] * b[0] - a[0] * b[2];
  r[2] = a[0] * b[1] - a[1] * b[0];
}

inline double dot(const double *a, const double *b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

}  // namespace

void normals(RunState &rs, bool quiet, bool full, bool indexed) {
  if (!quiet) rs.rep.say("Calculating surface normals");
  const size_t ntri = rs.ntri > 0 ? static_cast<size_t>(rs.ntri) : 0;
  if (full)
    releasenormals(rs);
  else
    release(rs.nrgtri);
  allocate(rs.nrgtri, 3 * ntri, "normals, nrgtri, 1");
  if (full) {
    allocate(rs.ugtri, 3 * ntri, "normals, ugtri, 1");
    allocate(rs.vgtri, 3 * ntri, "normals, ugtri, 1");
    allocate(rs.nnsqgtri, ntri, "normals, ugtri, 1");
    rs.uugtri.resize(ntri);
    rs.uvgtri.resize(ntri);
    rs.vvgtri.resize(ntri);
    rs.detgtri.resize(ntri);
    rs.dengtri.resize(ntri);
    rs.fullnormals = true;
  }
  if (ntri < 1) return;

  const double *vrt = rs.stlvrt.data();
  const size_t nvcols = rs.stlvrt.size() / 3;
  static const double origin[3] = {0, 0, 0};
  // Column j (0-based) of stlvrt; a column outside the array reads as the origin.
  auto column = [&](size_t j) { return j < nvcols ? vrt + 3 * j : origin; };
  for (size_t t = 0; t < ntri; ++t) {
    const double *p1, *p2, *p3;
    if (indexed && 3 * t + 2 >= rs.stltri.size()) {
      p1 = p2 = p3 = origin;  // a triangle beyond the table has no corners
    } else if (indexed) {
      const int32_t *tri = rs.stltri.data() + 3 * t;
      p1 = column(static_cast<size_t>(tri[0] - 1));
      p2 = column(static_cast<size_t>(tri[1] - 1));
      p3 = column(static_cast<size_t>(tri[2] - 1));
    } else {
      p1 = column(3 * t);
      p2 = column(3 * t + 1);
      p3 = column(3 * t + 2);
    }
    double u[3] = {p2[0] - p1[0], p2[1] - p1[1], p2[2] - p1[2]};
    double v[3] = {p3[0] - p1[0], p3[1] - p1[1], p3[2] - p1[2]};
    double *n = rs.nrgtri.data() + 3 * t;
    crossproduct(n, u, v);
    if (full) {
      for (int k = 0; k < 3; ++k) {
        rs.ugtri[3 * t + k] = u[k];
        rs.vgtri[3 * t + k] = v[k];
      }
      double uu = dot(u, u), uv = dot(u, v), vv = dot(v, v);
      rs.nnsqgtri[t] = dot(n, n);
      rs.uugtri[t] = uu;
      rs.uvgtri[t] = uv;
      rs.vvgtri[t] = vv;
      rs.detgtri[t] = std::fabs(uu * vv - uv * uv);
      rs.dengtri[t] = uu - 2.0 * uv + vv;
    }
  }
}

void releasenormals(RunState &rs) {
  release(rs.nrgtri);
  release(rs.ugtri);
  release(rs.vgtri);
  release(rs.nnsqgtri);
  release(rs.uugtri);
  release(rs.uvgtri);
  release(rs.vvgtri);
  release(rs.detgtri);
  release(rs.dengtri);
  rs.fullnormals = false;
}

}  // namespace wf
