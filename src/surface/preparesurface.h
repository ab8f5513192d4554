// SPDX-License-Identifier: GPL-3.0-or-later
// From STL soup to a checked mesh: an absolute tolerance taken from the surface itself, every
// raw vertex snapped to a lattice of that pitch centred on the box (so vertices meant to
// coincide become bit-identical), identical vertices merged by sorting, then the unique edges
// and the two checks: every edge on exactly two triangles that run along it in opposite senses.
// Neither check stops the run; they are returned. Nothing here prints: preparemesh tells a
// caller that reports the preparation of each stage as it comes (app/steps.h).
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "surface/edges.h"
#include "surface/sortkit.h"
#include "surface/surfacemesh.h"

namespace wf {

// Fixed settings of the tolerance: a fraction of the smallest edge, a fraction of the largest
// box size, and which of the two to take alone (neither: the smaller).
struct Tolerances {
  double reltoledge = 0.1;
  double reltolbox = 1.0e-6;
  bool tolbyedge = false;
  bool tolbybox = false;
};

// The smallest tolerance ever used.
inline constexpr double machineprecision = 0x1p-52;

// Smallest non-zero squared side of the soup, started at (2D)^2 with D the largest box size;
// returns its square root.
double minimumedge(const RawSurface &raw);

struct SnapTolerance {
  double tol = 0;     // the tolerance chosen from the two rules
  double intbox = 0;  // 2^-63 times the largest box size (the 64-bit lattice limit)
  double floor = 0;   // the finest usable pitch: max(2^-52, 2^-63 * each box size)
  bool raised() const { return floor > tol; }
  double pitch() const { return raised() ? floor : tol; }
};
SnapTolerance snaptolerance(const BBox &box, double minedgelen, const Tolerances &rules);

// Every coordinate v becomes q * pitch + centre, q = round((v - centre) / pitch) through a
// signed 64-bit integer (halves away from zero). With keys given, it also receives one key per
// vertex that orders the snapped vertices exactly as their coordinates do (x, then y, then z,
// equal keys for equal vertices): the three lattice indices, offset from the box's lowest and
// packed into 64 bits. That holds where adjacent lattice indices give distinct coordinates (the
// pitch is more than twice the spacing of doubles at the largest coordinate) and the three
// ranges fit 64 bits; otherwise keys is left empty.
void snapvertices(RawSurface &raw, double pitch, std::vector<uint64_t> *keys = nullptr);

// Merges bit-identical vertices: mesh.vrt gets the unique vertices in ascending x, y, z, and
// mesh.tri the 1-based number of each corner. triedgesq gets the squared sides of each
// triangle (corners 2-1, 3-2, 1-3). The soup is released. keys, when not empty, are those of
// snapvertices: a vertex's number is then the rank of its key among the distinct keys (found
// with a hash table in scratch, a local one when none is given), which is its number in the
// sort of the coordinates; without keys, or without the memory for the table, the coordinates
// are sorted. Throws Fatal 32.
void mergevertices(RawSurface &raw, SurfaceMesh &mesh, std::vector<double> &triedgesq,
                   const std::vector<uint64_t> *keys = nullptr, Scratch *scratch = nullptr);

struct SurfaceCheck {
  int status = 0;  // 0 clean, -1 some edge has other than two triangles
  bool watertight = true;
  bool oriented = true;  // no inversely oriented edge (judged only when watertight)
};

// What the preparation found, with the mesh and its edge table.
struct PreparedSurface {
  double minedgelen = 0;    // minimumedge of the soup
  SnapTolerance tolerance;  // the tolerance chosen; raised() when the floor replaced it
  EdgeCounts counts;        // edges by their triangles, and the inversely oriented ones
  long long euler = 0;      // unique vertices + triangles - unique edges
  SurfaceCheck check;
  SurfaceMesh mesh;  // unique vertices (mesh.nvrt), triangles, minedgelen
  EdgeTable edges;   // unique edges (edges.n)
};

// The moments of the preparation, in this order: the tolerance is chosen (snap, before the
// vertices are snapped), the vertices are about to be merged (merge), the vertices are merged
// and the edges are about to be built (edges). A fatal end comes after the last one told.
enum class PrepareStage { snap, merge, edges };
using PrepareStageFn = std::function<void(PrepareStage stage, const PreparedSurface &sofar)>;

// The preparation of a soup whose box is set: tolerance, snap, merge (the soup is consumed),
// edges and the checks. onstage, when given, is told each stage. Throws Fatal 32.
PreparedSurface preparemesh(RawSurface &raw, const Tolerances &rules, const PrepareStageFn &onstage = {});

}  // namespace wf
