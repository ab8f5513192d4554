// SPDX-License-Identifier: GPL-3.0-or-later
// Shapes made in code for the tests. Soups of doubles and the meshes prepared from them (through
// the preparation alone, with no console), STL files written by hand, for the surface, warp and
// read-back tests; closed parts, the damage that a surface brings to a warp, and the warp of such a
// surface on the sample job's field, for the repair tests and bench_repair. Soups travel as 9
// doubles per triangle, facets as 9 floats (corner 1 x, y, z, corner 2, corner 3), facing outwards.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "surface/preparesurface.h"

namespace wft {

// ---------------------------------------------------------------- soups and prepared meshes

// A triangle soup: nine coordinates per triangle (corner 1 x, y, z, corner 2, corner 3).
using Soup = std::vector<double>;

// Closed tetrahedron on the axes, outward by the right-hand rule.
Soup tetrahedron(double scale = 1.0);
// Closed axis-aligned cube of edge size at (x0, y0, z0): boxpart's 12 facets (corners exact as
// floats).
Soup cube(double size = 1.0, double x0 = 0, double y0 = 0, double z0 = 0);
// A closed cube [0, L]^3 (each face in n x n squares) and, beside it unless told otherwise, an
// open square sheet: boundary and interior edges.
Soup cubeandsheet(double L, int n, bool sheet = true);

// The soup as a reader leaves it: counts and box set.
wf::RawSurface rawof(const Soup &s);
// The soup prepared as a run prepares a surface (tolerance, snap, merge, edges, checks).
wf::PreparedSurface preparedof(const Soup &s, const wf::Tolerances &rules = {});

// A binary STL written by hand: 80 header bytes, the count (countoverride when >= 0), 50-byte
// records with a normal of ones and attribute 7, extra bytes at the end.
std::string binarystl(const Soup &s, bool bigendian = false, const std::string &header = "h",
                      long long countoverride = -1, const std::string &extra = "");
// An ASCII STL with full-precision coordinates.
std::string asciistl(const Soup &s, const std::string &name = "part");

using Facets = std::vector<float>;

// A tetrahedron with corners (0,0,0), (10,0,0), (0,10,0), (0,0,10) as warped: moved by (0,0,0),
// (1,0,0), (0,2,0), (0,0,4), displacement magnitudes 0, 1, 2, 4.
wf::SurfaceMesh movedtetra();

// ---------------------------------------------------------------- parts

// A box [x0, x0 + sx] x [y0, y0 + sy] x [z0, z0 + sz], each face in n x n rectangles of two facets.
Facets boxpart(float x0, float y0, float z0, float sx, float sy, float sz, int n);
// The facets of a, then those of b.
Facets joined(Facets a, const Facets &b);
// A torus round the axis parallel to z through (cx, cy, cz): nu cells round the axis, nv round the
// tube.
Facets toruspart(float cx, float cy, float cz, float R, float r, int nu, int nv);
// The union volume of the bridge of repairparts() as it is made (before any warp).
double bridgevolume();
// n small facets scattered at random (from seed) in a 50 mm cube: a surface that bounds nothing.
Facets scatteredfacets(int n, unsigned seed);

// The parts of the repair tests and bench_repair: a 10 mm cube of twelve facets, the sample
// bracket (part.stl of the job in fieldfolder), a torus and the bridge (two boxes stacked with
// overlap: a pier and a deck across it that reaches into it, no face of one in a face of the other).
struct NamedPart {
  std::string name;
  Facets facets;
};
std::vector<NamedPart> repairparts(const std::string &fieldfolder);

// ---------------------------------------------------------------- damage

enum class Damage {
  none,
  onefacet,      // one facet removed
  twofacets,     // two facets that share an edge removed
  side,          // every facet facing within 45 degrees of -y removed
  sliver,        // a zero-area facet along an edge of the surface added
  fin,           // a facet standing out of the surface on one of its edges added
  reversedcopy,  // a reversed copy of every facet added
};
const char *damagename(Damage d);
// The damaged surface; `at` chooses the facet where the damage is made (taken modulo the count).
Facets damage(const Facets &part, Damage d, size_t at);

// ---------------------------------------------------------------- measures

double facetarea(const Facets &s);
// Signed volume by the divergence theorem (meaningful for closed surfaces).
double signedvolume(const Facets &s);
// Edges (corners equal as floats are one vertex) on more than two facets.
size_t overloadededges(const Facets &s);

// ---------------------------------------------------------------- warp on the sample field

// A folder with the sample job of genjob (its mesh and field), ready for surfaces of one's own.
std::string samplefield(const std::string &tag);
// The surface written as the job's part, warped with the deck's cards (`cards` is appended to
// "*INPU job *IOFF -1 *N3DM"); returns the program's console and exit status through out and
// status. The warped surface is folder/job_1_warp.stl, a repaired one job_1_warp_ls_repair.stl.
struct WarpRun {
  int status = -1;
  std::string console;
  Facets warped;         // job_1_warp.stl
  Facets repaired = {};  // job_1_warp_ls_repair.stl, empty when not written
  bool repairedwritten = false;
};
WarpRun warpsurface(const std::string &folder, const Facets &surface, const std::string &cards);

// ---------------------------------------------------------------- damaged whole jobs

// The sample job in folder with one damage that a run must survive with a result or a coded
// message: a vertex of the part moved 3e10 mm away (every copy of it), every vertex not a number,
// the binary STL's triangle count set to 2^30 or to -2^31 (the rest of the file as it was), or a
// level limit of 268435456 on a deck that keeps splitting. Returns the deck's name.
enum class JobDamage { farvertex, nanvertices, count2e30, countneg, maxrefine };
const char *jobdamagename(JobDamage d);
std::string damagedjob(const std::string &folder, JobDamage d);

}  // namespace wft
