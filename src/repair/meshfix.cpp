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
#include <functional>
#include <queue>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

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

int64_t fillholes(stl_file &stl) {
  if (nfacets(stl) == 0) return 0;
  exact(stl);
  const int n = nfacets(stl);

  // Corners numbered by position; every edge of the mesh known, to keep new edges off them.
  std::vector<int32_t> id;
  std::vector<stl_vertex> where;
  const int32_t nv = cornerids(stl.facet_start, n, id, &where);
  std::vector<uint64_t> oldedges;
  sortededges(id, oldedges);
  std::unordered_set<uint64_t> newedges;
  auto known = [&](uint64_t key) {
    return std::binary_search(oldedges.begin(), oldedges.end(), key) || newedges.count(key) > 0;
  };

  // Open half-edges, in the direction of their facet.
  std::vector<int32_t> from, to;
  for (size_t i = 0; i < size_t(n); ++i)
    for (size_t j = 0; j < 3; ++j)
      if (stl.neighbors_start[i].neighbor[j] == -1) {
        from.push_back(id[3 * i + j]);
        to.push_back(id[3 * i + (j + 1) % 3]);
      }
  const int32_t nhalf = int32_t(from.size());
  if (nhalf == 0) return 0;

  // Outgoing half-edges per corner (counting sort), a cursor into each list.
  std::vector<int32_t> first(size_t(nv) + 1, 0);
  std::vector<int32_t> order(static_cast<size_t>(nhalf)), cursor(static_cast<size_t>(nv));
  for (int32_t h = 0; h < nhalf; ++h) ++first[size_t(from[h]) + 1];
  for (int32_t v = 0; v < nv; ++v) first[size_t(v) + 1] += first[size_t(v)];
  for (int32_t v = 0; v < nv; ++v) cursor[size_t(v)] = first[size_t(v)];
  {
    std::vector<int32_t> slot(first.begin(), first.end() - 1);
    for (int32_t h = 0; h < nhalf; ++h) order[size_t(slot[size_t(from[h])]++)] = h;
  }
  std::vector<char> used(size_t(nhalf), 0);
  auto nextout = [&](int32_t v) {
    while (cursor[size_t(v)] < first[size_t(v) + 1]) {
      int32_t h = order[size_t(cursor[size_t(v)]++)];
      if (!used[size_t(h)]) return h;
    }
    return int32_t(-1);
  };

  std::vector<stl_facet> added;
  auto addfacet = [&](int32_t a, int32_t b, int32_t c) {
    stl_facet f{};
    f.vertex[0] = where[size_t(a)];
    f.vertex[1] = where[size_t(b)];
    f.vertex[2] = where[size_t(c)];
    setnormal(f);
    added.push_back(f);
    newedges.insert(edgekey(a, b));
  };
  auto dist2 = [&](int32_t a, int32_t b) {
    const stl_vertex &p = where[size_t(a)], &q = where[size_t(b)];
    double dx = double(p.x) - q.x, dy = double(p.y) - q.y, dz = double(p.z) - q.z;
    return dx * dx + dy * dy + dz * dz;
  };

  // One loop, corners in the direction of the open half-edges: ears are cut off, the one with
  // the shortest new edge first, and an ear whose new edge exists already only when no other
  // ear is left. Each ear (p, c, q) becomes the facet (p, q, c), which runs against the loop.
  std::vector<int32_t> prev, next, stamp;
  // The rest of a loop (left corners, from corner i on) closed by facets round its centre,
  // a new corner, so that no new edge can run along an old one.
  auto star = [&](const std::vector<int32_t> &loop, int32_t i, size_t left) {
    double c[3] = {0, 0, 0};
    int32_t j = i;
    for (size_t m = 0; m < left; ++m, j = next[size_t(j)]) {
      const stl_vertex &v = where[size_t(loop[size_t(j)])];
      c[0] += v.x;
      c[1] += v.y;
      c[2] += v.z;
    }
    stl_vertex centre = {float(c[0] / double(left)), float(c[1] / double(left)),
                         float(c[2] / double(left))};
    where.push_back(centre);
    const int32_t cid = int32_t(where.size() - 1);
    j = i;
    for (size_t m = 0; m < left; ++m, j = next[size_t(j)]) {
      int32_t a = loop[size_t(j)], b = loop[size_t(next[size_t(j)])];
      addfacet(b, a, cid);
      newedges.insert(edgekey(a, cid));
    }
  };

  auto clip = [&](const std::vector<int32_t> &loop) {
    const size_t k = loop.size();
    prev.resize(k);
    next.resize(k);
    stamp.assign(k, 0);
    for (size_t i = 0; i < k; ++i) {
      prev[i] = int32_t((i + k - 1) % k);
      next[i] = int32_t((i + 1) % k);
    }
    using Ear = std::tuple<int, double, int32_t, int32_t>;  // blocked, length, corner, stamp
    std::priority_queue<Ear, std::vector<Ear>, std::greater<Ear>> heap;
    auto push = [&](int32_t i) {
      int32_t p = loop[size_t(prev[size_t(i)])], q = loop[size_t(next[size_t(i)])];
      int blocked = known(edgekey(p, q)) ? 1 : 0;
      heap.emplace(blocked, dist2(p, q), i, ++stamp[size_t(i)]);
    };
    for (size_t i = 0; i < k; ++i) push(int32_t(i));
    size_t left = k;
    while (left > 3 && !heap.empty()) {
      auto [blocked, len, i, st] = heap.top();
      heap.pop();
      if (st != stamp[size_t(i)]) continue;  // stale entry
      int32_t pi = prev[size_t(i)], qi = next[size_t(i)];
      int32_t p = loop[size_t(pi)], q = loop[size_t(qi)];
      if (!blocked && known(edgekey(p, q))) {  // became blocked meanwhile
        push(i);
        continue;
      }
      if (blocked) {  // every ear left would double an edge: a star round a new centre
        star(loop, i, left);
        return;
      }
      addfacet(p, q, loop[size_t(i)]);
      stamp[size_t(i)] = -1;
      next[size_t(pi)] = qi;
      prev[size_t(qi)] = pi;
      --left;
      push(pi);
      push(qi);
    }
    for (size_t i = 0; i < k; ++i)
      if (stamp[i] >= 0) {
        int32_t pi = prev[i], qi = next[i];
        addfacet(loop[size_t(pi)], loop[size_t(qi)], loop[i]);
        break;
      }
  };

  // Walk the boundary; a corner met again closes a loop, which is cut off and filled. A walk
  // that cannot go on is left open.
  std::vector<int32_t> path, pos(size_t(nv), -1), loop;
  for (int32_t h0 = 0; h0 < nhalf; ++h0) {
    if (used[size_t(h0)]) continue;
    path.assign(1, from[size_t(h0)]);
    pos[size_t(from[size_t(h0)])] = 0;
    int32_t cur = h0;
    while (cur >= 0) {
      used[size_t(cur)] = 1;
      int32_t v = to[size_t(cur)];
      if (pos[size_t(v)] >= 0) {
        size_t p = size_t(pos[size_t(v)]);
        if (path.size() - p >= 3) {
          loop.assign(path.begin() + long(p), path.end());
          clip(loop);
        }
        for (size_t q = p + 1; q < path.size(); ++q) pos[size_t(path[q])] = -1;
        path.resize(p + 1);
      } else {
        pos[size_t(v)] = int32_t(path.size());
        path.push_back(v);
      }
      cur = nextout(path.back());
    }
    for (int32_t v : path) pos[size_t(v)] = -1;
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
    dropconflicts(stl);
    removeunconnected(stl);
    fillholes(stl);
    orient(stl);
  }
}

}  // namespace wf::meshfix
