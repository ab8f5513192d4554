// SPDX-License-Identifier: GPL-3.0-or-later
#include "surface/normals.h"

#include <cmath>

#include "base/memory.h"

namespace wf {

namespace {

inline void crossproduct(double *r, const double *a, const double *b) {
  r[0] = a[1] * b[2] - a[2] * b[1];
  r[1] = a[2] * b[0] - a[0] * b[2];
  r[2] = a[0] * b[1] - a[1] * b[0];
}

// Calls f(t, u, v) for every triangle with its two edge vectors from corner 1.
template <class F>
void eachtriangle(const double *vrt, size_t nvrt, const int32_t *tri, size_t ntri, F f) {
  static const double origin[3] = {0, 0, 0};
  auto column = [&](size_t j) { return j < nvrt ? vrt + 3 * j : origin; };
  for (size_t t = 0; t < ntri; ++t) {
    const double *p1, *p2, *p3;
    if (tri) {
      const int32_t *c = tri + 3 * t;
      p1 = column(static_cast<size_t>(c[0] - 1));
      p2 = column(static_cast<size_t>(c[1] - 1));
      p3 = column(static_cast<size_t>(c[2] - 1));
    } else {
      p1 = column(3 * t);
      p2 = column(3 * t + 1);
      p3 = column(3 * t + 2);
    }
    const double u[3] = {p2[0] - p1[0], p2[1] - p1[1], p2[2] - p1[2]};
    const double v[3] = {p3[0] - p1[0], p3[1] - p1[1], p3[2] - p1[2]};
    f(t, u, v);
  }
}

}  // namespace

void facetnormals(const double *vrt, size_t nvrt, const int32_t *tri, int32_t ntri, std::vector<double> &n) {
  const size_t nt = ntri > 0 ? static_cast<size_t>(ntri) : 0;
  allocate(n, 3 * nt, "normals, nrgtri, 1");
  eachtriangle(vrt, nvrt, tri, nt,
               [&](size_t t, const double *u, const double *v) { crossproduct(n.data() + 3 * t, u, v); });
}

}  // namespace wf
