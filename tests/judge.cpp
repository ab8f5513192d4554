// SPDX-License-Identifier: GPL-3.0-or-later
#include "judge.h"

#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/connected_components.h>
#include <CGAL/Polygon_mesh_processing/measure.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Polygon_mesh_processing/self_intersections.h>
#include <CGAL/Surface_mesh.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <sstream>

namespace wft {

namespace {

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Point = Kernel::Point_3;
using Mesh = CGAL::Surface_mesh<Point>;
namespace PMP = CGAL::Polygon_mesh_processing;
using Key = std::array<std::array<float, 3>, 3>;

Key sortedkey(const float *p) {
  Key k{{{p[0], p[1], p[2]}, {p[3], p[4], p[5]}, {p[6], p[7], p[8]}}};
  std::sort(k.begin(), k.end());
  return k;
}

}  // namespace

std::string Verdict::text() const {
  std::ostringstream s;
  s << "facets " << facets << " manifold " << manifold << " closed " << closed << " oriented " << oriented << " shells "
    << shells << " crossings " << crossings << " zeroarea " << zeroarea << " newhits " << newhits << " area " << area
    << " volume " << volume;
  return s.str();
}

Verdict judge(const std::vector<float> &facets, const std::vector<float> *before) {
  Verdict v;
  v.facets = facets.size() / 9;
  if (v.facets == 0) return v;
  std::map<std::array<float, 3>, size_t> ids;
  std::vector<Point> points;
  std::vector<std::array<size_t, 3>> faces;
  for (size_t t = 0; t < v.facets; ++t) {
    std::array<size_t, 3> f;
    for (int k = 0; k < 3; ++k) {
      const float *p = &facets[9 * t + 3 * size_t(k)];
      auto [it, fresh] = ids.emplace(std::array<float, 3>{p[0], p[1], p[2]}, points.size());
      if (fresh) points.emplace_back(p[0], p[1], p[2]);
      f[size_t(k)] = it->second;
    }
    faces.push_back(f);
    if (CGAL::collinear(points[f[0]], points[f[1]], points[f[2]])) ++v.zeroarea;
  }
  // Edges: how many facets, and whether the two of a pair run opposite ways.
  std::map<std::pair<size_t, size_t>, int> directed;
  for (const auto &f : faces)
    for (int k = 0; k < 3; ++k) ++directed[{f[size_t(k)], f[size_t((k + 1) % 3)]}];
  bool edgesok = true, closed = true, opposite = true;
  for (const auto &[e, n] : directed) {
    const auto back = directed.find({e.second, e.first});
    const int both = n + (back == directed.end() ? 0 : back->second);
    if (both > 2) edgesok = false;
    if (both != 2) closed = false;
    if (n != 1) opposite = false;
  }
  v.closed = closed && edgesok;
  // A polygon mesh: manifold edges and vertices, consistently oriented.
  const bool mesh = edgesok && opposite && PMP::is_polygon_soup_a_polygon_mesh(faces);
  v.manifold = mesh;
  if (!mesh) return v;
  Mesh m;
  PMP::polygon_soup_to_polygon_mesh(points, faces, m);
  std::vector<std::pair<Mesh::Face_index, Mesh::Face_index>> pairs;
  PMP::self_intersections(m, std::back_inserter(pairs));
  v.crossings = std::min<size_t>(pairs.size(), 1000);
  if (before) {
    std::set<Key> old;
    for (size_t t = 0; t < before->size() / 9; ++t) old.insert(sortedkey(&(*before)[9 * t]));
    // Faces of the mesh are in soup order.
    std::vector<char> isnew(v.facets);
    for (size_t t = 0; t < v.facets; ++t) isnew[t] = !old.count(sortedkey(&facets[9 * t]));
    for (const auto &[a, b] : pairs) v.newhits += isnew[size_t(a)] || isnew[size_t(b)];
  }
  auto cc = m.add_property_map<Mesh::Face_index, size_t>("f:cc").first;
  v.shells = PMP::connected_components(m, cc);
  v.area = PMP::area(m);
  v.volume = v.closed ? PMP::volume(m) : 0.0;
  v.oriented = v.closed && v.volume > 0;
  return v;
}

}  // namespace wft
