// SPDX-License-Identifier: GPL-3.0-or-later
// Repair passes on an admesh stl_file. admesh does the merging (exact and nearby within the
// tolerance); the solid is then made by repair/solidrepair (orientation, stitching, hole filling,
// crossings removed and filled again). Every loop below is bounded by the number of facets or of
// open edges.
#include "repair/meshfix.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <queue>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

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
  for (int i = 0; i < stl.stats.number_of_facets; ++i)
    stl_facet_stats(&stl, stl.facet_start[i], i == 0);
  if (stl.stats.number_of_facets > 0) stl_get_size(&stl);
}

int nfacets(const stl_file &stl) { return stl.stats.number_of_facets; }

bool allconnected(const stl_file &stl) {
  return stl.stats.connected_facets_3_edge >= stl.stats.number_of_facets;
}

void exact(stl_file &stl) {
  if (nfacets(stl) > 0) stl_check_facets_exact(&stl);
}

void nearby(stl_file &stl, float tolerance) {
  if (nfacets(stl) == 0 || allconnected(stl)) return;
  refreshbox(stl);
  stl_check_facets_nearby(&stl, tolerance);
}

struct VertexKey {
  uint32_t w[3];
  bool operator==(const VertexKey &o) const {
    return w[0] == o.w[0] && w[1] == o.w[1] && w[2] == o.w[2];
  }
};
struct VertexKeyHash {
  static uint64_t mix(uint64_t x) {  // splitmix64 finaliser
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
  }
  size_t operator()(const VertexKey &k) const {
    return size_t(mix((uint64_t(k.w[0]) << 32 | k.w[1]) ^ mix(k.w[2])));
  }
};


// Numbers the distinct corners (exact float bits) of n facets: id of corner k of facet i at
// [3i + k]. Returns the number of distinct corners. Open addressing with the key in the slot, so
// that a lookup touches one place in memory; the table doubles at half load.
int32_t cornerids(const stl_facet *facets, int n, std::vector<int32_t> &id,
                  std::vector<stl_vertex> *where = nullptr) {
  struct Slot {
    VertexKey key;
    int32_t id;  // -1: empty
  };
  const size_t m = 3 * size_t(std::max(n, 0));
  size_t cap = 1024;
  while (cap < m / 2) cap <<= 1;
  std::vector<Slot> table(cap, Slot{{{0, 0, 0}}, -1});
  size_t used = 0;
  const VertexKeyHash hash;
  auto place = [&](std::vector<Slot> &t, const VertexKey &key) -> Slot & {
    size_t mask = t.size() - 1, h = hash(key) & mask;
    while (t[h].id >= 0 && !(t[h].key == key)) h = (h + 1) & mask;
    return t[h];
  };
  id.resize(m);
  int32_t next = 0;
  for (size_t c = 0; c < m; ++c) {
    VertexKey key;
    const stl_vertex &v = facets[c / 3].vertex[c % 3];
    std::memcpy(key.w, &v, sizeof key.w);
    Slot &slot = place(table, key);
    if (slot.id < 0) {
      slot.key = key;
      slot.id = next++;
      if (where) where->push_back(v);
      if (++used * 2 > table.size()) {
        std::vector<Slot> bigger(table.size() * 2, Slot{{{0, 0, 0}}, -1});
        for (const Slot &old : table)
          if (old.id >= 0) place(bigger, old.key) = old;
        table.swap(bigger);
      }
      id[c] = next - 1;
    } else {
      id[c] = slot.id;
    }
  }
  return next;
}

uint64_t edgekey(int32_t a, int32_t b) {
  if (a > b) std::swap(a, b);
  return uint64_t(uint32_t(a)) << 32 | uint32_t(b);
}

// Undirected edge keys of all facet sides, sorted.
void sortededges(const std::vector<int32_t> &id, std::vector<uint64_t> &keys) {
  size_t n = id.size() / 3;
  keys.resize(3 * n);
  for (size_t i = 0; i < n; ++i)
    for (size_t k = 0; k < 3; ++k) keys[3 * i + k] = edgekey(id[3 * i + k], id[3 * i + (k + 1) % 3]);
  std::sort(keys.begin(), keys.end());
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

bool soundness(const float *xyz, int64_t n, Soundness &result) {
  result = Soundness();
  result.facets = n;
  if (n <= 0) return true;
  stl_file stl;
  if (!loadfacets(stl, xyz, n)) return false;
  stl_check_facets_exact(&stl);
  result.connected3 = stl.stats.connected_facets_3_edge;
  result.degenerate = stl.stats.degenerate_facets;
  for (int i = 0; i < stl.stats.number_of_facets; ++i)
    for (int j = 0; j < 3; ++j)
      if (stl.neighbors_start[i].neighbor[j] != -1 && stl.neighbors_start[i].which_vertex_not[j] > 2)
        ++result.backwards;
  std::vector<int32_t> id;
  std::vector<uint64_t> keys;
  cornerids(stl.facet_start, stl.stats.number_of_facets, id);
  sortededges(id, keys);
  for (size_t i = 0; i < keys.size();) {
    size_t j = i;
    while (j < keys.size() && keys[j] == keys[i]) ++j;
    if (j - i > 2) ++result.overloaded;
    i = j;
  }
  closestl(stl);
  if (result.paired()) {
    try {
      result.solid = checksolid(xyz, n);
    } catch (const std::bad_alloc &) {
      return false;
    }
  }
  return true;
}

int64_t dropconflicts(stl_file &stl) {
  exact(stl);
  const int n = nfacets(stl);
  if (n == 0) return 0;
  std::vector<int32_t> id;
  std::vector<uint64_t> keys;
  cornerids(stl.facet_start, n, id);
  sortededges(id, keys);
  auto overloaded = [&](int32_t a, int32_t b) {
    uint64_t key = edgekey(a, b);
    auto lo = std::lower_bound(keys.begin(), keys.end(), key);
    return lo + 2 < keys.end() && *(lo + 2) == key;
  };
  int k = 0;
  for (int i = 0; i < n; ++i) {
    bool bad = false;
    for (int j = 0; j < 3; ++j) {
      if (stl.neighbors_start[i].neighbor[j] != -1 && stl.neighbors_start[i].which_vertex_not[j] > 2)
        bad = true;
      if (overloaded(id[3 * size_t(i) + size_t(j)], id[3 * size_t(i) + size_t(j + 1) % 3]))
        bad = true;
    }
    if (!bad) stl.facet_start[k++] = stl.facet_start[i];
  }
  if (k == n) return 0;
  stl.stats.facets_removed += n - k;
  stl.stats.number_of_facets = k;
  exact(stl);
  return n - k;
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
  std::vector<float> xyz;
  for (int pass = 1; pass <= 8; ++pass) {
    takefacets(stl, xyz);
    Soundness s;
    if (soundness(xyz.data(), nfacets(stl), s) && s.sound()) break;
    if (nfacets(stl) == 0) break;
    double grown = 2.0 * t;
    if (cap > 0 && grown > cap) grown = std::max<double>(cap, tolerance);
    t = float(grown);
    exact(stl);
    nearby(stl, t);
    dropconflicts(stl);
    solidify(stl, true);
  }
}

}  // namespace wf::meshfix
