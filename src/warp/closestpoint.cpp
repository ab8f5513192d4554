// SPDX-License-Identifier: GPL-2.0-or-later
// Closest point on a prepared triangle set: Eberly's seven-region minimisation per triangle,
// a linear pass over the set in order, the first of equal distances kept.
#include <cstddef>
#include <limits>

#include "warp/closestpoint.h"

namespace wf {

namespace {

inline double clamp01(double x) { return x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x); }

}  // namespace

void closestpoint(const double *query, double *out, const QuerySet &set) {
  const int32_t ntri = set.ntri;
  const double px = query[0], py = query[1], pz = query[2];
  // Without a usable triangle the point stays where it is.
  out[0] = px;
  out[1] = py;
  out[2] = pz;
  double best = std::numeric_limits<double>::infinity();
  const double *corner = set.corners.data();
  const double *e0 = set.e0.data();
  const double *e1 = set.e1.data();
  for (int32_t t = 0; t < ntri; ++t) {
    const double *cc = corner + 9 * static_cast<size_t>(t);
    const double *u = e0 + 3 * static_cast<size_t>(t);
    const double *v = e1 + 3 * static_cast<size_t>(t);
    const double a = set.a[t], b = set.b[t], c = set.c[t], det = set.det[t], den = set.den[t];
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
      const double x = b + d, y = c + e;
      if (y > x) {
        s = clamp01((y - x) / den);
        tt = 1.0 - s;
      } else {
        s = 0.0;
        tt = clamp01(-e / c);
      }
    } else if (tt < 0.0) {
      const double x = b + e, y = a + d;
      if (y > x) {
        tt = clamp01((y - x) / den);
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
    const double x0 = cc[0] + s * u[0] + tt * v[0];
    const double x1 = cc[1] + s * u[1] + tt * v[1];
    const double x2 = cc[2] + s * u[2] + tt * v[2];
    const double rx = x0 - px, ry = x1 - py, rz = x2 - pz;
    const double dd = rx * rx + ry * ry + rz * rz;
    // Strictly smaller only, so the first of equal distances stays. A degenerate triangle
    // (zero area) gives no number here and is passed over.
    if (dd < best) {
      best = dd;
      out[0] = x0;
      out[1] = x1;
      out[2] = x2;
    }
  }
}

}  // namespace wf
