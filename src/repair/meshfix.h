// SPDX-License-Identifier: GPL-3.0-or-later
// The repair passes of the mesh-repair component on an admesh stl_file, and the soundness test.
// Facets travel as 9 floats each (corner 1 x, y, z, corner 2, corner 3).
#pragma once

#include <admesh/stl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "repair/solidcheck.h"

namespace wf::meshfix {

// Fills a zeroed stl_file with n facets, normals computed from the corner order, -0 made +0.
// False when memory runs out (the file is then closed again).
bool loadfacets(stl_file &stl, const float *xyz, int64_t n);
// The facets of stl as 9 floats each.
void takefacets(const stl_file &stl, std::vector<float> &xyz);
// Frees what loadfacets and the passes allocated (also with admesh's error flag up).
void freestl(stl_file &stl);

// Whether the facets are printable (repair/solidcheck.h); false when memory runs out.
bool sound(const float *xyz, int64_t n, bool &result);

// The default and the extended pass (see meshrepair.h).
void defaultpass(stl_file &stl, float tolerance);
void extendedpass(stl_file &stl, float tolerance);

}  // namespace wf::meshfix
