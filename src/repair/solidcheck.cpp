// SPDX-License-Identifier: GPL-3.0-or-later
#include "repair/solidcheck.h"

#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/orient_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Polygon_mesh_processing/self_intersections.h>
#include <CGAL/Surface_mesh.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <vector>

namespace wf {

namespace {

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Point = Kernel::Point_3;
using Mesh = CGAL::Surface_mesh<Point>;
namespace PMP = CGAL::Polygon_mesh_processing;

}  // namespace

void mergecorners(const float *xyz, int64_t n, bool dropdegenerate, std::vector<float> &corners,
                  std::vector<std::array<size_t, 3>> &faces) {
  corners.clear();
  faces.clear();
  if (n <= 0) return;
  const size_t nc = 3 * static_cast<size_t>(n);
  std::vector<uint32_t> order(nc);
  std::iota(order.begin(), order.end(), 0u);
  auto less = [xyz](uint32_t a, uint32_t b) {
    const float *p = xyz + 3 * size_t(a), *q = xyz + 3 * size_t(b);
    return std::lexicographical_compare(p, p + 3, q, q + 3);
  };
  std::sort(order.begin(), order.end(), less);
  faces.resize(static_cast<size_t>(n));
  for (size_t i = 0; i < nc; ++i) {
    if (i == 0 || less(order[i - 1], order[i])) corners.insert(corners.end(), xyz + 3 * size_t(order[i]), xyz + 3 * size_t(order[i]) + 3);
    faces[order[i] / 3][order[i] % 3] = corners.size() / 3 - 1;
  }
  if (dropdegenerate)
    faces.erase(std::remove_if(faces.begin(), faces.end(),
                               [](const std::array<size_t, 3> &f) { return f[0] == f[1] || f[1] == f[2] || f[2] == f[0]; }),
                faces.end());
}

SolidCheck checksolid(const float *xyz, int64_t n) {
  SolidCheck c;
  if (n <= 0) return c;
  std::vector<Point> points;
  std::vector<std::array<size_t, 3>> faces;
  floatsoup(xyz, n, false, points, faces);

  // Zero area (exact: three collinear corners, two equal corners included) and the volume.
  for (const auto &f : faces) {
    const Point &a = points[f[0]], &b = points[f[1]], &d = points[f[2]];
    if (CGAL::collinear(a, b, d)) ++c.zeroarea;
    c.volume += (a.x() * (b.y() * d.z() - b.z() * d.y()) - a.y() * (b.x() * d.z() - b.z() * d.x()) +
                 a.z() * (b.x() * d.y() - b.y() * d.x())) / 6.0;
  }
  if (c.zeroarea > 0) {
    c.told = true;  // a degenerate facet already fails; crossings are not looked for
    return c;
  }
  if (!PMP::is_polygon_soup_a_polygon_mesh(faces)) return c;
  Mesh mesh;
  PMP::polygon_soup_to_polygon_mesh(points, faces, mesh);
  c.closed = CGAL::is_closed(mesh);
  c.crossing = PMP::does_self_intersect(mesh);
  c.told = true;
  return c;
}

}  // namespace wf
