// SPDX-License-Identifier: GPL-3.0-or-later
// Per-triangle geometry: the facet normal n = u x v with u = P2 - P1 and v = P3 - P1 (twice the
// triangle's area long, by the right-hand rule on the corner order; nothing is normalised, and
// a degenerate triangle gives zeros).
//
// Corners: with tri given (3 x ntri, 1-based vertex numbers) they are columns of vrt through
// it; with tri null, triangle t (0-based) has columns 3t, 3t+1, 3t+2, as a soup has them. A
// column outside vrt (nvrt columns) reads as the origin. Throws Fatal 32 ("normals, nrgtri, 1").
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wf {

// n: 3 x ntri.
void facetnormals(const double *vrt, size_t nvrt, const int32_t *tri, int32_t ntri, std::vector<double> &n);

}  // namespace wf
