// SPDX-License-Identifier: GPL-3.0-or-later
// The data of a surface, from STL soup to the checked, warped and refined mesh.
//
// Index base: every vertex, triangle and edge number stored in these arrays is 1-based, with 0
// for none, as they reach files and messages; the arrays are addressed 0-based (number j lives
// at column j - 1). Coordinates are columns of three doubles (x fastest).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wf {

struct BBox {
  double min[3] = {0, 0, 0};
  double max[3] = {0, 0, 0};
  double size[3] = {0, 0, 0};    // max - min
  double centre[3] = {0, 0, 0};  // (min + max) * 0.5
};

// Per axis the extremes over n columns of xyz. A value that is not a number is passed over
// unless every value of the axis is one (the axis is then NaN throughout).
BBox boundingbox(const double *xyz, size_t n);

// A triangle soup as read: corner k (0..2) of triangle t (0-based) is column 3t + k of vrt.
// nvrt is 3 * ntri after a good read.
struct RawSurface {
  std::vector<double> vrt;  // 3 x nvrt
  int32_t nvrt = 0;
  int32_t ntri = 0;
  BBox box;
};

// The merged mesh. vrt holds nvrt columns (vertices ascending in x, then y, then z as merged;
// refinement appends), tri holds ntri columns of three 1-based vertex numbers in the corner
// order of the file. prewarp is empty until the warp: then it holds the same vertices before
// they moved (for a vertex made by refinement, the undisplaced midpoint). box is that of the
// surface as read.
struct SurfaceMesh {
  std::vector<double> vrt;
  std::vector<int32_t> tri;
  std::vector<double> prewarp;
  int32_t nvrt = 0;
  int32_t ntri = 0;
  BBox box;
  double minedgelen = 0;  // smallest non-zero side of the soup it was made from
};

// The unique edges of a mesh and the diamond round each: per edge e (1-based),
//   vrt(2):  its two vertices, in the direction of the last triangle that touched it;
//   tri(2):  its first two triangles in triangle order (0 where there is none);
//   opp(2):  the vertex opposite the edge in each of them (0 where there is none);
//   nbr(4):  the other two edges of the first triangle, then of the second (0 where none);
//   len:     its length; level: its refinement level (0 for an edge of the surface as read).
// triedge(3 x ntri) names the edge of each side of each triangle (sides 1-2, 2-3, 3-1); the
// refinement does not keep it. cap is the number of edges the arrays have room for.
struct EdgeTable {
  std::vector<int32_t> vrt, tri, opp, nbr;
  std::vector<double> len;
  std::vector<int32_t> level;
  std::vector<int32_t> triedge;
  int32_t n = 0;
  int32_t cap = 0;
};

// Sides of a triangle by number k = 0, 1, 2: corners (k, k+1 mod 3), the corner opposite, and
// the other two sides in order.
inline constexpr int sidea[3] = {0, 1, 2};
inline constexpr int sideb[3] = {1, 2, 0};
inline constexpr int sideopposite[3] = {2, 0, 1};
inline constexpr int sideother1[3] = {1, 2, 0};
inline constexpr int sideother2[3] = {2, 0, 1};

}  // namespace wf
