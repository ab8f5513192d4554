// SPDX-License-Identifier: GPL-2.0-or-later
// Repair passes on an admesh stl_file. admesh does the merging (exact and nearby), the removal of
// unconnected and degenerate facets and the facet directions; the holes are closed here, since
// admesh's own filler can walk a broken fan for ever. Every loop below is bounded by the number
// of facets or of open edges.
#include "repair/meshfix.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

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

double signedvolume(const stl_file &stl) {
  double v = 0;
  for (int i = 0; i < stl.stats.number_of_facets; ++i) {
    const stl_vertex &a = stl.facet_start[i].vertex[0], &b = stl.facet_start[i].vertex[1],
                     &c = stl.facet_start[i].vertex[2];
    v += double(a.x) * (double(b.y) * c.z - double(b.z) * c.y) +
         double(a.y) * (double(b.z) * c.x - double(b.x) * c.z) +
         double(a.z) * (double(b.x) * c.y - double(b.y) * c.x);
  }
  return v / 6.0;
}

// Consistent facet directions across shared edges, then outward as a whole (positive volume).
void orient(stl_file &stl) {
  if (nfacets(stl) == 0) return;
  // Stored normals agree with the corner order, so the first facet counts as right.
  for (int i = 0; i < nfacets(stl); ++i) setnormal(stl.facet_start[i]);
  stl_fix_normal_directions(&stl);
  if (signedvolume(stl) < 0) stl_reverse_all_facets(&stl);
  for (int i = 0; i < nfacets(stl); ++i) setnormal(stl.facet_start[i]);
}

void exact(stl_file &stl) {
  if (nfacets(stl) > 0) stl_check_facets_exact(&stl);
}

void removeunconnected(stl_file &stl) {
  if (nfacets(stl) > 0) stl_remove_unconnected_facets(&stl);
}

void nearby(stl_file &stl, float tolerance) {
  if (nfacets(stl) == 0 || allconnected(stl)) return;
  refreshbox(stl);
  stl_check_facets_nearby(&stl, tolerance);
}

// Drops every facet that meets a neighbour running the same way along their common edge: what
// stl_fix_normal_directions could not settle is a twist that no direction of these facets fixes.
void dropbackwards(stl_file &stl) {
  exact(stl);
  int n = nfacets(stl), k = 0;
  for (int i = 0; i < n; ++i) {
    bool bad = false;
    for (int j = 0; j < 3; ++j)
      if (stl.neighbors_start[i].neighbor[j] != -1 && stl.neighbors_start[i].which_vertex_not[j] > 2)
        bad = true;
    if (!bad) stl.facet_start[k++] = stl.facet_start[i];
  }
  if (k == n) return;
  stl.stats.facets_removed += n - k;
  stl.stats.number_of_facets = k;
  exact(stl);
}

struct VertexKey {
  uint32_t w[3];
  bool operator==(const VertexKey &o) const {
    return w[0] == o.w[0] && w[1] == o.w[1] && w[2] == o.w[2];
  }
};
struct VertexKeyHash {
  size_t operator()(const VertexKey &k) const {
    uint64_t h = k.w[0] * 0x9E3779B97F4A7C15ull;
    h ^= (h >> 29) + k.w[1] * 0xBF58476D1CE4E5B9ull;
    h ^= (h >> 31) + k.w[2] * 0x94D049BB133111EBull;
    return size_t(h ^ (h >> 32));
  }
};

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
  closestl(stl);
  return true;
}

int64_t fillholes(stl_file &stl) {
  if (nfacets(stl) == 0) return 0;
  exact(stl);
  const int n = nfacets(stl);

  // Open half-edges, in the direction of their facet, between numbered corner positions.
  std::unordered_map<VertexKey, int32_t, VertexKeyHash> ids;
  std::vector<stl_vertex> where;
  std::vector<int32_t> from, to;
  auto idof = [&](const stl_vertex &v) {
    VertexKey key;
    std::memcpy(key.w, &v, sizeof key.w);
    auto [it, fresh] = ids.try_emplace(key, int32_t(where.size()));
    if (fresh) where.push_back(v);
    return it->second;
  };
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < 3; ++j)
      if (stl.neighbors_start[i].neighbor[j] == -1) {
        from.push_back(idof(stl.facet_start[i].vertex[j]));
        to.push_back(idof(stl.facet_start[i].vertex[(j + 1) % 3]));
      }
  const int32_t nhalf = int32_t(from.size());
  if (nhalf == 0) return 0;

  // Outgoing half-edges per corner (counting sort), a cursor into each list.
  const int32_t nv = int32_t(where.size());
  std::vector<int32_t> first(size_t(nv) + 1, 0), order(nhalf), cursor(nv);
  for (int32_t h = 0; h < nhalf; ++h) ++first[from[h] + 1];
  for (int32_t v = 0; v < nv; ++v) first[v + 1] += first[v];
  for (int32_t v = 0; v < nv; ++v) cursor[v] = first[v];
  {
    std::vector<int32_t> fill(first.begin(), first.end() - 1);
    for (int32_t h = 0; h < nhalf; ++h) order[fill[from[h]]++] = h;
  }
  std::vector<char> used(nhalf, 0);
  auto nextout = [&](int32_t v) {
    while (cursor[v] < first[v + 1]) {
      int32_t h = order[cursor[v]++];
      if (!used[h]) return h;
    }
    return int32_t(-1);
  };

  // Walk the boundary; a corner met again closes a loop, which is cut off and filled by a fan
  // that runs against the boundary's direction. A walk that cannot go on is left open.
  std::vector<stl_facet> added;
  std::vector<int32_t> path, pos(nv, -1);
  auto fan = [&](size_t p) {
    size_t k = path.size() - p;
    for (size_t i = 1; i + 1 < k; ++i) {
      stl_facet f{};
      f.vertex[0] = where[path[p]];
      f.vertex[1] = where[path[p + i + 1]];
      f.vertex[2] = where[path[p + i]];
      setnormal(f);
      added.push_back(f);
    }
  };
  for (int32_t h0 = 0; h0 < nhalf; ++h0) {
    if (used[h0]) continue;
    path.assign(1, from[h0]);
    pos[from[h0]] = 0;
    int32_t cur = h0;
    while (cur >= 0) {
      used[cur] = 1;
      int32_t v = to[cur];
      if (pos[v] >= 0) {
        size_t p = size_t(pos[v]);
        if (path.size() - p >= 3) fan(p);
        for (size_t q = p + 1; q < path.size(); ++q) pos[path[q]] = -1;
        path.resize(p + 1);
      } else {
        pos[v] = int32_t(path.size());
        path.push_back(v);
      }
      cur = nextout(path.back());
    }
    for (int32_t v : path) pos[v] = -1;
  }
  if (added.empty()) return 0;

  size_t total = size_t(n) + added.size();
  if (total > size_t(INT32_MAX)) return 0;
  auto *facets = static_cast<stl_facet *>(std::realloc(stl.facet_start, total * sizeof(stl_facet)));
  if (!facets) return 0;
  stl.facet_start = facets;
  auto *nbrs =
      static_cast<stl_neighbors *>(std::realloc(stl.neighbors_start, total * sizeof(stl_neighbors)));
  if (!nbrs) return 0;
  stl.neighbors_start = nbrs;
  std::copy(added.begin(), added.end(), stl.facet_start + n);
  stl.stats.facets_malloced = int(total);
  stl.stats.number_of_facets = int(total);
  stl.stats.facets_added += int(added.size());
  exact(stl);
  return int64_t(added.size());
}

void defaultpass(stl_file &stl, float tolerance) {
  exact(stl);
  nearby(stl, tolerance);
  if (!allconnected(stl)) removeunconnected(stl);
  orient(stl);
  fillholes(stl);
  orient(stl);
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
    removeunconnected(stl);
    orient(stl);
    dropbackwards(stl);
    removeunconnected(stl);
    fillholes(stl);
    orient(stl);
  }
}

}  // namespace wf::meshfix
