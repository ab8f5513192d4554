// SPDX-License-Identifier: GPL-2.0-or-later
// A prepared triangle query set (the reference or the scanned geometry) and the closest point on
// it. Triangles are numbered 0-based in file order: corner k of triangle t is corners[9t + 3k ..],
// the edge vectors E0 = corner 2 - corner 1 and E1 = corner 3 - corner 1 are at [3t ..], and
// a = E0.E0, b = E0.E1, c = E1.E1, det = |ac - bb|, den = a - 2b + c at [t].
//
// closestpoint takes, per triangle, Eberly's seven-region minimisation of the distance to the
// triangle (parameters clamped to [0, 1]), X = C + s E0 + t E1 and D = |X - P|^2, and returns
// the X of the smallest D; among equal D the triangle that comes first wins, and a triangle
// whose D is not a number (a degenerate one) is never taken. With no triangle taken the point
// itself is returned. Read-only and safe to call from any thread.
#pragma once

#include <cstdint>
#include <vector>

namespace wf {

struct QuerySet {
  int32_t nvrt = 0;  // 3 * ntri
  int32_t ntri = 0;
  std::vector<double> corners;            // 3 x nvrt
  std::vector<double> e0, e1;             // 3 x ntri each
  std::vector<double> a, b, c, det, den;  // ntri each
  std::vector<double> normal;             // 3 x ntri (kept, not read by the warp)
  std::vector<double> nnsq;               // ntri (kept, not read by the warp)
  double bbox[6] = {0, 0, 0, 0, 0, 0};    // min x, y, z, max x, y, z of the file
};

void closestpoint(const double *query, double *out, const QuerySet &set);

}  // namespace wf
