// SPDX-License-Identifier: GPL-3.0-or-later
// A closed, outward-facing solid made out of the facets of a damaged surface (9 floats each),
// with CGAL's polygon mesh processing: corners equal as floats merged, duplicated and degenerate
// facets dropped, the facets turned to one consistent orientation, borders stitched, every hole
// filled by a minimum-area triangulation of its rim (no new corners, so the patch follows the
// surrounding surface), then the facets that cross others removed together with their
// neighbours and the openings filled again, a few rounds at most (only crossings within one
// shell: shells that cross each other are left whole); with unite, shells that still overlap or
// touch are then united into one solid (repair/unite.h); last, every shell is turned to face
// outwards. Only the facets change; xyz is replaced by the result.
#pragma once

#include <cstdint>
#include <vector>

namespace wf {

struct SolidRepairReport {
  bool built = false;       // the facets could be made into a mesh at all
  bool closed = false;      // every edge on two facets in the result
  bool crossing = true;     // facets of the result still cross
  int64_t holes = 0;        // holes filled (all rounds)
  int64_t removed = 0;      // facets removed round crossings
  bool united = false;      // shells were united
  // Seconds of each stage: soup (merge, orient), mesh (build, stitch), holes (first filling),
  // crossings (the rounds, with their test), finish (outward shells, facets out).
  double seconds[5] = {0, 0, 0, 0, 0};
};

// Throws std::bad_alloc when memory runs out; xyz is then unchanged.
SolidRepairReport makesolid(std::vector<float> &xyz, bool unite);

}  // namespace wf
