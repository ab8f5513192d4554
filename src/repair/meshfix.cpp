// SPDX-License-Identifier: GPL-3.0-or-later
// Repair passes on an admesh stl_file. admesh closes cracks (its exact and nearby checks within
// the tolerance); the solid is then made by repair/solidrepair (debris, orientation, holes,
// crossing patches, union). Every loop below is bounded by its count of passes.
#include "repair/meshfix.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>

#include "repair/solidrepair.h"

namespace wf::meshfix {

namespace {

void closestl(stl_file &stl) {
  // stl_close does nothing while the error flag is up, so free by hand.
  std::free(stl.facet_start);
  std::free(stl.neighbors_start);
  std::free(stl.v_indices);
  std::free(stl.v_shared);
  stl.facet_start = nullptr;
  stl.neighbors_start = nullptr;
  stl.v_indices = nullptr;
  stl.v_shared = nullptr;
}

void setnormal(stl_facet &f) {
  const stl_vertex &a = f.vertex[0], &b = f.vertex[1], &c = f.vertex[2];
  double ux = double(b.x) - a.x, uy = double(b.y) - a.y, uz = double(b.z) - a.z;
  double vx = double(c.x) - a.x, vy = double(c.y) - a.y, vz = double(c.z) - a.z;
  double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz, nz = ux * vy - uy * vx;
  double len = std::sqrt(nx * nx + ny * ny + nz * nz);
  if (len > 0) {
    nx /= len;
    ny /= len;
    nz /= len;
  }
  f.normal.x = float(nx);
  f.normal.y = float(ny);
  f.normal.z = float(nz);
}

// Bounding box, size and diameter from the current facets (the nearby check keys on the minimum).
void refreshbox(stl_file &stl) {
  for (int i = 0; i < stl.stats.number_of_facets; ++i) stl_facet_stats(&stl, stl.facet_start[i], i == 0);
  if (stl.stats.number_of_facets > 0) stl_get_size(&stl);
}

int nfacets(const stl_file &stl) { return stl.stats.number_of_facets; }

bool allconnected(const stl_file &stl) { return stl.stats.connected_facets_3_edge >= stl.stats.number_of_facets; }

void exact(stl_file &stl) {
  if (nfacets(stl) > 0) stl_check_facets_exact(&stl);
}

void nearby(stl_file &stl, float tolerance) {
  if (nfacets(stl) == 0 || allconnected(stl)) return;
  refreshbox(stl);
  stl_check_facets_nearby(&stl, tolerance);
}

}  // namespace

bool loadfacets(stl_file &stl, const float *xyz, int64_t n) {
  std::memset(&stl, 0, sizeof stl);
  stl_initialize(&stl);
  stl.stats.type = binary;
  if (n < 0 || n > INT32_MAX) return false;
  size_t cap = size_t(std::max<int64_t>(n, 1));
  stl.facet_start = static_cast<stl_facet *>(std::calloc(cap, sizeof(stl_facet)));
  stl.neighbors_start = static_cast<stl_neighbors *>(std::calloc(cap, sizeof(stl_neighbors)));
  if (!stl.facet_start || !stl.neighbors_start) {
    closestl(stl);
    return false;
  }
  stl.stats.facets_malloced = int(cap);
  stl.stats.number_of_facets = int(n);
  stl.stats.original_num_facets = int(n);
  for (int64_t i = 0; i < n; ++i) {
    stl_facet &f = stl.facet_start[i];
    float *dst = &f.vertex[0].x;
    for (int k = 0; k < 9; ++k) {
      float v = xyz[9 * i + k];
      dst[k] = (v == 0.0f) ? 0.0f : v;  // -0 and +0 must hash alike
    }
    setnormal(f);
  }
  refreshbox(stl);
  return true;
}

void takefacets(const stl_file &stl, std::vector<float> &xyz) {
  int n = stl.stats.number_of_facets;
  xyz.resize(size_t(9) * size_t(std::max(n, 0)));
  for (int i = 0; i < n; ++i) std::memcpy(&xyz[9 * size_t(i)], &stl.facet_start[i].vertex[0], 36);
}

void freestl(stl_file &stl) { closestl(stl); }

bool sound(const float *xyz, int64_t n, bool &result) {
  result = false;
  if (n <= 0) return true;
  try {
    result = checksolid(xyz, n).printable();
  } catch (const std::bad_alloc &) {
    return false;
  }
  return true;
}

// The facets made into a closed solid (see repair/solidrepair.h), back into stl.
void solidify(stl_file &stl, bool unite) {
  std::vector<float> xyz;
  takefacets(stl, xyz);
  if (xyz.empty()) return;
  makesolid(xyz, unite);
  closestl(stl);
  stl = stl_file();
  if (!loadfacets(stl, xyz.data(), int64_t(xyz.size() / 9))) throw std::bad_alloc();
  exact(stl);
}

void defaultpass(stl_file &stl, float tolerance) {
  exact(stl);
  nearby(stl, tolerance);
  solidify(stl, false);
}

void extendedpass(stl_file &stl, float tolerance) {
  refreshbox(stl);
  const double cap = 0.01 * stl.stats.bounding_diameter;
  float t = tolerance;
  std::vector<float> before, after;
  for (int pass = 1; pass <= 8; ++pass) {
    takefacets(stl, before);
    bool printable = false;
    if (sound(before.data(), nfacets(stl), printable) && printable) break;
    if (nfacets(stl) == 0) break;
    double grown = 2.0 * t;
    if (cap > 0 && grown > cap) grown = std::max<double>(cap, tolerance);
    t = float(grown);
    exact(stl);
    nearby(stl, t);
    solidify(stl, true);
    // A pass that changed nothing would change nothing again.
    takefacets(stl, after);
    if (after == before) break;
  }
}

}  // namespace wf::meshfix
