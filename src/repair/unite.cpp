// SPDX-License-Identifier: GPL-3.0-or-later
#include "repair/unite.h"

#include <CGAL/Exact_predicates_exact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/connected_components.h>
#include <CGAL/Polygon_mesh_processing/corefinement.h>
#include <CGAL/Polygon_mesh_processing/orient_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/orientation.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Polygon_mesh_processing/repair_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/self_intersections.h>
#include <CGAL/Surface_mesh.h>

#include <array>

#include "repair/facetmesh.h"

namespace wf {

namespace {

using Kernel = CGAL::Exact_predicates_exact_constructions_kernel;
using Point = Kernel::Point_3;
using Mesh = CGAL::Surface_mesh<Point>;
namespace PMP = CGAL::Polygon_mesh_processing;

}  // namespace

bool uniteshells(std::vector<float> &xyz) {
  const size_t n = xyz.size() / 9;
  if (n == 0) return false;
  // Corners equal as floats are one vertex; a facet with two equal corners has no area to keep.
  const FacetMesh soup = weld(xyz.data(), static_cast<int64_t>(n), true);
  std::vector<Point> points;
  for (size_t v = 0; v < soup.npoints(); ++v)
    points.emplace_back(soup.points[3 * v], soup.points[3 * v + 1], soup.points[3 * v + 2]);
  std::vector<std::array<size_t, 3>> faces;
  for (const Facet &f : soup.facets) faces.push_back({size_t(f[0]), size_t(f[1]), size_t(f[2])});
  // Shells that touch share corners there; those are split apart again per shell.
  PMP::repair_polygon_soup(points, faces);
  PMP::orient_polygon_soup(points, faces);
  if (!PMP::is_polygon_soup_a_polygon_mesh(faces)) {
    return false;
  }
  Mesh whole;
  PMP::polygon_soup_to_polygon_mesh(points, faces, whole);
  std::vector<Mesh> shells;
  PMP::split_connected_components(whole, shells);
  if (shells.size() < 2) return false;
  for (Mesh &s : shells) {
    if (!CGAL::is_closed(s) || PMP::does_self_intersect(s)) return false;
    if (!PMP::is_outward_oriented(s)) PMP::reverse_face_orientations(s);
  }
  Mesh united = shells[0];
  for (size_t i = 1; i < shells.size(); ++i) {
    Mesh out;
    if (!PMP::corefine_and_compute_union(united, shells[i], out)) return false;
    united = std::move(out);
  }
  std::vector<float> result;
  result.reserve(9 * united.number_of_faces());
  for (const auto f : united.faces())
    for (const auto v : CGAL::vertices_around_face(united.halfedge(f), united)) {
      const Point &p = united.point(v);
      result.insert(result.end(),
                    {static_cast<float>(CGAL::to_double(p.x())), static_cast<float>(CGAL::to_double(p.y())),
                     static_cast<float>(CGAL::to_double(p.z()))});
    }
  xyz.swap(result);
  return true;
}

}  // namespace wf
