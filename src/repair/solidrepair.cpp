// SPDX-License-Identifier: GPL-3.0-or-later
#include "repair/solidrepair.h"

#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Polygon_mesh_processing/border.h>
#include <CGAL/Polygon_mesh_processing/connected_components.h>
#include <CGAL/Polygon_mesh_processing/orient_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/orientation.h>
#include <CGAL/Polygon_mesh_processing/polygon_soup_to_polygon_mesh.h>
#include <CGAL/Polygon_mesh_processing/repair_degeneracies.h>
#include <CGAL/Polygon_mesh_processing/repair_polygon_soup.h>
#include <CGAL/Polygon_mesh_processing/self_intersections.h>
#include <CGAL/Polygon_mesh_processing/stitch_borders.h>
#include <CGAL/Polygon_mesh_processing/triangulate_hole.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/boost/graph/Euler_operations.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>

#include "repair/solidcheck.h"
#include "repair/unite.h"

namespace wf {

namespace {

using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Point = Kernel::Point_3;
using Mesh = CGAL::Surface_mesh<Point>;
namespace PMP = CGAL::Polygon_mesh_processing;

// Rounds of removing the facets round crossings and filling the openings again.
constexpr int crossingrounds = 6;

double since(std::chrono::steady_clock::time_point &t) {
  const auto now = std::chrono::steady_clock::now();
  const double s = std::chrono::duration<double>(now - t).count();
  t = now;
  return s;
}

int64_t fillholes(Mesh &mesh) {
  std::vector<Mesh::Halfedge_index> rims;
  PMP::extract_boundary_cycles(mesh, std::back_inserter(rims));
  for (const auto h : rims) {
    std::vector<Mesh::Face_index> patch;
    PMP::triangulate_hole(mesh, h, std::back_inserter(patch));
  }
  return static_cast<int64_t>(rims.size());
}

// The facets of the mesh, 9 floats each (every corner came from a float).
void facetsof(const Mesh &mesh, std::vector<float> &out) {
  out.clear();
  out.reserve(9 * mesh.number_of_faces());
  for (const auto f : mesh.faces())
    for (const auto v : CGAL::vertices_around_face(mesh.halfedge(f), mesh)) {
      const Point &p = mesh.point(v);
      out.insert(out.end(), {static_cast<float>(p.x()), static_cast<float>(p.y()), static_cast<float>(p.z())});
    }
}

}  // namespace

SolidRepairReport makesolid(std::vector<float> &xyz, bool unite) {
  SolidRepairReport r;
  const size_t n = xyz.size() / 9;
  if (n == 0) return r;
  auto clock = std::chrono::steady_clock::now();
  // Corners equal as floats are one vertex; a facet with two equal corners has no area to keep.
  std::vector<Point> points;
  std::vector<std::array<size_t, 3>> faces;
  floatsoup(xyz.data(), static_cast<int64_t>(n), true, points, faces);
  // A facet repeated, either way round, goes with all its copies: two parts that touch along a
  // face have such pairs there, and the face between them is no surface of the united part; a
  // plain duplicate leaves a hole that is filled below.
  PMP::repair_polygon_soup(points, faces, CGAL::parameters::erase_all_duplicates(true));
  PMP::orient_polygon_soup(points, faces);
  r.seconds[0] = since(clock);
  if (faces.empty() || !PMP::is_polygon_soup_a_polygon_mesh(faces)) return r;
  Mesh mesh;
  PMP::polygon_soup_to_polygon_mesh(points, faces, mesh);
  r.built = true;
  PMP::stitch_borders(mesh);
  // Zero-area facets go by collapsing their shortest edge or flipping their longest.
  PMP::remove_degenerate_faces(mesh);
  r.seconds[1] = since(clock);
  r.holes += fillholes(mesh);
  r.seconds[2] = since(clock);

  // Each round lists the crossings once: the same list ends the rounds and tells the result.
  std::vector<std::pair<Mesh::Face_index, Mesh::Face_index>> pairs;
  for (int round = 0;; ++round) {
    pairs.clear();
    PMP::self_intersections(mesh, std::back_inserter(pairs));
    if (pairs.empty() || round == crossingrounds) break;
    // Only crossings within one shell: shells crossing each other are left for the union.
    auto shell = mesh.add_property_map<Mesh::Face_index, std::size_t>("f:shell").first;
    PMP::connected_components(mesh, shell);
    std::vector<Mesh::Face_index> doomed;
    for (const auto &[a, b] : pairs)
      if (shell[a] == shell[b]) doomed.insert(doomed.end(), {a, b});
    mesh.remove_property_map(shell);
    if (doomed.empty()) break;
    // The facets next to a crossing go as well, so that the opening has room for a new patch.
    const size_t direct = doomed.size();
    for (size_t i = 0; i < direct; ++i)
      for (const auto h : CGAL::halfedges_around_face(mesh.halfedge(doomed[i]), mesh)) {
        const auto o = mesh.opposite(h);
        if (!mesh.is_border(o)) doomed.push_back(mesh.face(o));
      }
    std::sort(doomed.begin(), doomed.end());
    doomed.erase(std::unique(doomed.begin(), doomed.end()), doomed.end());
    for (const auto f : doomed) CGAL::Euler::remove_face(mesh.halfedge(f), mesh);
    r.removed += static_cast<int64_t>(doomed.size());
    mesh.collect_garbage();
    r.holes += fillholes(mesh);
  }
  r.closed = CGAL::is_closed(mesh);
  r.crossing = !pairs.empty();
  std::vector<float> out;
  if (unite && r.closed && r.crossing) {
    facetsof(mesh, out);
    if (uniteshells(out)) {
      // The union, its corners rounded, made clean once more (slivers where the shells met).
      const SolidRepairReport again = makesolid(out, false);
      if (again.closed && !again.crossing) {
        r.united = true;
        r.crossing = false;
        r.holes += again.holes;
        r.removed += again.removed;
        r.seconds[3] = since(clock);
        xyz.swap(out);
        return r;
      }
    }
  }
  r.seconds[3] = since(clock);
  if (r.closed && !r.crossing) PMP::orient_to_bound_a_volume(mesh);

  facetsof(mesh, out);
  xyz.swap(out);
  r.seconds[4] = since(clock);
  return r;
}

}  // namespace wf
