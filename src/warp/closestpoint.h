// SPDX-License-Identifier: GPL-3.0-or-later
// A prepared triangle query set (the reference or the scanned geometry), its bounding-volume
// hierarchy, and the closest point on it.
//
// Triangles are numbered 0-based in file order. corners holds corner k of triangle t at
// [9t + 3k ..] (file order). Each triangle's terms (corner 1 C, E0 = corner 2 - C,
// E1 = corner 3 - C, a = E0.E0, b = E0.E1, c = E1.E1, det = |ac - bb|, den = a - 2b + c) are
// kept in one record; once the index is built the records stand in the order of its leaves:
// terms[k] is file triangle fileindex[k], and file triangle t is at terms[position[t]].
//
// closestpoint takes, per triangle, the seven-region minimisation of the distance to the
// triangle (parameters clamped to [0, 1]), X = C + s E0 + t E1 and D = |X - P|^2, and returns
// the X of the smallest D; among equal D the triangle that comes first in file order wins, and a
// triangle whose D is not a number is never taken. With no triangle taken the point itself is
// returned. closestpointlinear is the same search over every triangle in file order (the
// reference the index is tested against); closestpoint runs it when no index was built. Both
// are read-only on the set, allocate nothing and may run on any number of threads at once.
//
// makequeryset and buildindex throw Fatal ("closestpoint, index, 1" or "procref, aref, 1")
// when memory runs out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace wf {

struct QueryTriangle {
  double c[3], e0[3], e1[3];
  double a, b, cc, det, den;
};

// One node of the hierarchy: a box in single precision, rounded outwards. A leaf (count > 0)
// holds terms[first .. first + count - 1]; an inner node (count == 0) has its two children at
// nodes[first] and nodes[first + 1]. The root is nodes[0].
struct BoxNode {
  float lo[3], hi[3];
  int32_t first, count;
};

// Nodes start on a cache line, so that the two children of a node (32 bytes each, stored side
// by side from an even place) are read in one line.
template <class T>
struct LineAllocator {
  using value_type = T;
  LineAllocator() = default;
  template <class U>
  LineAllocator(const LineAllocator<U> &) {}
  T *allocate(size_t n) { return static_cast<T *>(::operator new(n * sizeof(T), std::align_val_t{64})); }
  void deallocate(T *p, size_t) { ::operator delete(p, std::align_val_t{64}); }
  bool operator==(const LineAllocator &) const = default;
};

struct QuerySet {
  int32_t nvrt = 0;  // 3 * ntri
  int32_t ntri = 0;
  std::vector<double> corners;          // 9 x ntri, file order
  std::vector<QueryTriangle> terms;     // ntri, leaf order once indexed
  std::vector<int32_t> fileindex;       // ntri: file triangle of terms[k] (empty: file order)
  std::vector<int32_t> position;        // ntri: place of file triangle t in terms
  std::vector<BoxNode, LineAllocator<BoxNode>> nodes;  // empty: no index
  std::vector<double> normal;           // 3 x ntri (kept, not read by the warp)
  std::vector<double> nnsq;             // ntri (kept, not read by the warp)
  double bbox[6] = {0, 0, 0, 0, 0, 0};  // min x, y, z, max x, y, z of the file
};

// Builds the set of ntri triangles from their corners (9 x ntri doubles, file order) and its
// index; box is the file's box, kept as given.
QuerySet makequeryset(std::vector<double> &&corners, int32_t ntri, const double box[6]);

// (Re)builds the index of a set whose corners and terms are filled.
void buildindex(QuerySet &set);

void closestpoint(const double *query, double *out, const QuerySet &set);
void closestpointlinear(const double *query, double *out, const QuerySet &set);

}  // namespace wf
