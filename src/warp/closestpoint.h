// SPDX-License-Identifier: GPL-3.0-or-later
// A prepared triangle query set (the reference or the scanned geometry), its bounding-volume
// hierarchy, and the closest point on it.
//
// Triangles are numbered 0-based in file order; corners holds corner k of triangle t at
// [9t + 3k ..]. The terms of a triangle (corner 1 C, E0 = corner 2 - C, E1 = corner 3 - C,
// a = E0.E0, b = E0.E1, c = E1.E1, det = |ac - bb|, den = a - 2b + c) are worked out from its
// corners whenever it is visited, by the same operations every time.
//
// closestpoint takes, per triangle, the seven-region minimisation of the distance to the
// triangle (parameters clamped to [0, 1]), X = C + s E0 + t E1 and D = |X - P|^2, and returns
// the X of the smallest D; among equal D the triangle that comes first in file order wins, and a
// triangle whose D is not a number is never taken. With no triangle taken the point itself is
// returned. closestpointlinear is the same search over every triangle in file order (the
// reference the index is tested against); closestpoint runs it when no index was built. Both
// are read-only on the set, allocate nothing and may run on any number of threads at once.
//
// makequeryset and buildindex throw Fatal ("closestpoint, index, 1") when memory runs out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wf {

// One node of the hierarchy, one cache line: up to four children, each with its box quantized
// to 8 bits a side within the node's box (side q of axis k stands at origin[k] + q step[k],
// worked out in double precision and rounded outwards, so a child's box holds everything below
// it; a node whose box is not finite has steps that are not a number, and its children are
// never skipped). child[j] > 0 is an inner node, child[j] == 0 an empty place, and a leaf has
// child[j] = -1 - (line * 16 + lines): its block is the `lines` cache lines from
// leaves[8 * line]. The root is nodes[0]. A leaf block holds
//   bytes 0-3   the place (0-based, leaf order) of its first triangle, an int32;
//   byte 4      its count of triangles;
//   bytes 5..   three corner numbers (0-based, one byte each) per triangle, then padding to a
//               multiple of 8 bytes;
//   then        its distinct corners, x, y, z as doubles, bit for bit as in the file.
// Blocks follow one another in the order of the tree, so neighbouring leaves are neighbours in
// memory; place k of the leaf order is file triangle fileindex[k].
struct WideNode {
  float origin[3], step[3];
  uint8_t lo[3][4], hi[3][4];  // [axis][child]
  int32_t child[4];
};

// Storage of the index: it starts on a cache line, and large arrays are asked to be kept in huge
// pages, since every query lands at random places of them.
void *indexmemory(size_t bytes);
void freeindexmemory(void *p, size_t bytes);
template <class T>
struct LineAllocator {
  using value_type = T;
  LineAllocator() = default;
  template <class U>
  LineAllocator(const LineAllocator<U> &) {}
  T *allocate(size_t n) { return static_cast<T *>(indexmemory(n * sizeof(T))); }
  void deallocate(T *p, size_t n) { freeindexmemory(p, n * sizeof(T)); }
  bool operator==(const LineAllocator &) const = default;
};

struct QuerySet {
  int32_t nvrt = 0;  // 3 * ntri
  int32_t ntri = 0;
  std::vector<double> corners;                           // 9 x ntri, file order
  std::vector<WideNode, LineAllocator<WideNode>> nodes;  // empty: no index
  std::vector<double, LineAllocator<double>> leaves;     // the leaf blocks, 8 doubles a line
  std::vector<int32_t> fileindex;                        // ntri: file triangle at place k of the leaf order
  double bbox[6] = {0, 0, 0, 0, 0, 0};                   // min x, y, z, max x, y, z of the file
};

// Builds the set of ntri triangles from their corners (9 x ntri doubles, file order) and its
// index; box is the file's box, kept as given.
QuerySet makequeryset(std::vector<double> &&corners, int32_t ntri, const double box[6]);

// (Re)builds the index of a set whose corners are filled.
void buildindex(QuerySet &set);

void closestpoint(const double *query, double *out, const QuerySet &set);
void closestpointlinear(const double *query, double *out, const QuerySet &set);

}  // namespace wf
