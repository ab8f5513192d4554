// SPDX-License-Identifier: GPL-3.0-or-later
// A closed, outward-facing solid made out of the facets of a damaged surface (9 floats each).
//
// The surfaces this meets most are warped ones whose refinement reached a hole: round the rim,
// facets fold over others, edges carry three to eight facets, facets lie on top of others. So:
//  1. corners equal as floats are merged; facets repeated the same way round are kept once;
//     facets repeated either way round go with all their copies where the rest closes over them
//     (parts touching along a face), and are kept once otherwise;
//  2. debris is removed: facets of zero area, and of the facets that conflict (cross others of
//     the same piece, or lie folded back onto a facet of the same edge) as few as settle every
//     conflict, once those in the most conflicts first and once the smaller of each conflict
//     first (steps 2 to 5 are carried through for both, and the result that keeps more area,
//     closed and without crossings, is kept); then the facets on an edge that still has more
//     than two (settling the smaller first, the two largest stay where they run opposite ways);
//  3. facets that hang on by one side or a corner are peeled (two rounds), at a corner round
//     which the facets of one piece form more than one fan the fan of most area stays and the
//     others go, and small open scraps go;
//  4. each piece is oriented by walking across its edges (never cut apart), the way most of its
//     area already faced; of two facets that cannot agree across an edge the smaller goes;
//  5. every hole is filled by the shape of its rim: a near-planar rim by a constrained Delaunay
//     triangulation in its plane, any other by a triangulation restricted to the rim's 3D
//     Delaunay triangulation (never the exhaustive search on a long rim); a patch that crosses
//     its own piece goes again with the facets it crossed and their ring, and the opening is
//     filled anew (a few rounds);
//  6. when neither way gives a solid, or one whose pieces still cross, the outer layer of each
//     piece (repair/outerhull.h) is carried through steps 2 to 5 instead; it is kept when it is
//     better, and the surface it was given is then the layer and what of the facets given lies
//     outside it (all else lies inside the solid);
//  7. with unite, pieces that cross each other are united (repair/unite.h).
// The result is taken only when it keeps at least 90% of the area it was given (debris aside)
// and has no more shells than the surface had pieces (each counted when it holds at least 1% of
// the area); otherwise xyz is left as it was.
#pragma once

#include <cstdint>
#include <vector>

namespace wf {

struct SolidRepairReport {
  bool built = false;    // there were facets to work on
  bool taken = false;    // the result replaced the facets
  bool closed = false;   // every edge on two facets in the result
  bool crossing = true;  // facets of the result still cross
  int64_t debris = 0;    // facets removed as debris, peeled or scrapped
  int64_t holes = 0;     // holes filled (all rounds)
  int64_t removed = 0;   // facets removed round crossing patches
  bool united = false;   // pieces were united
  int32_t pieces = 0;    // pieces of the surface given (debris aside)
  int32_t shells = 0;    // shells of the result
  double givenarea = 0;  // area of the surface given, debris aside
  double area = 0;       // area of the result
  // Seconds of each stage: merge (weld, repeats), debris (edges, crossings, removal), orient
  // (fans, scraps, orientation), holes (filling and the check of the patches), finish (union,
  // facets out).
  double seconds[5] = {0, 0, 0, 0, 0};
};

// Every coordinate must be finite (the component's loader refuses a file with any other, so the
// exact predicates never meet one). Throws std::bad_alloc when memory runs out; xyz is then
// unchanged.
SolidRepairReport makesolid(std::vector<float> &xyz, bool unite);

}  // namespace wf
