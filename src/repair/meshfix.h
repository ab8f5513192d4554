// SPDX-License-Identifier: GPL-3.0-or-later
// The repair passes of the mesh-repair component on an admesh stl_file, and the soundness count.
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

struct Soundness {
  int64_t facets = 0;
  int64_t connected3 = 0;  // facets connected on all three edges
  int64_t backwards = 0;   // facet edges whose neighbour runs the same way
  int64_t degenerate = 0;  // facets with two equal corners
  int64_t overloaded = 0;  // edges shared by more than two facets (admesh pairs them up)
  SolidCheck solid;        // looked at only when the edges pair up as they should
  bool paired() const {
    return facets > 0 && connected3 == facets && backwards == 0 && degenerate == 0 &&
           overloaded == 0;
  }
  // Printable: closed, every edge on two facets running opposite ways, and a solid (positive
  // volume, no zero-area facet, no facets crossing).
  bool sound() const { return paired() && solid.printable(); }
};
// Exact check on a scratch copy; false when memory runs out.
bool soundness(const float *xyz, int64_t n, Soundness &result);

// Drops every facet on an edge with more than two facets, or meeting a neighbour that runs the
// same way along their common edge. Returns the number dropped.
int64_t dropconflicts(stl_file &stl);
// The default and the extended pass (see meshrepair.h).
void defaultpass(stl_file &stl, float tolerance);
void extendedpass(stl_file &stl, float tolerance);

}  // namespace wf::meshfix
