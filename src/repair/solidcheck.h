// SPDX-License-Identifier: GPL-3.0-or-later
// What a printer needs of a closed surface beyond its edges pairing up: it encloses a positive
// volume, no facet has zero area, and no two facets cross or touch other than along the edge or
// at the corner they share. Facets travel as 9 floats each (corner 1 x, y, z, corner 2, corner
// 3); corners that are equal as floats are one vertex. The tests use exact predicates (CGAL), so
// a near miss is never taken for a crossing nor a crossing for a near miss.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace wf {

struct SolidCheck {
  bool told = false;        // false: the facets do not form a manifold surface (nothing told)
  bool closed = false;      // every edge on two facets (told only)
  int64_t zeroarea = 0;     // facets whose three corners lie on one line
  bool crossing = false;    // two facets cross or touch
  double volume = 0;        // signed enclosed volume (positive when facing outwards)
  bool printable() const { return told && closed && zeroarea == 0 && !crossing && volume > 0; }
};

// Corners equal as floats made one vertex: the distinct corners (3 floats each, ascending) and
// the three corner numbers (0-based) of each of the n facets. With dropdegenerate, facets with
// two equal corners are left out.
void mergecorners(const float *xyz, int64_t n, bool dropdegenerate, std::vector<float> &corners,
                  std::vector<std::array<size_t, 3>> &faces);

// The same as a soup of points of a kernel (Point made from three doubles).
template <class Point>
void floatsoup(const float *xyz, int64_t n, bool dropdegenerate, std::vector<Point> &points,
               std::vector<std::array<size_t, 3>> &faces) {
  std::vector<float> corners;
  mergecorners(xyz, n, dropdegenerate, corners, faces);
  points.clear();
  points.reserve(corners.size() / 3);
  for (size_t k = 0; k < corners.size(); k += 3) points.emplace_back(corners[k], corners[k + 1], corners[k + 2]);
}

// Checks n facets. Throws std::bad_alloc when memory runs out.
SolidCheck checksolid(const float *xyz, int64_t n);

}  // namespace wf
